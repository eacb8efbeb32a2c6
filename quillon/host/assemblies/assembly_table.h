// Selects one file for each simple name of an assembly.
//
// The runtime looks up an assembly by its simple name: first in the list of trusted platform
// assemblies, ignoring case, then in each folder of APP_PATHS in order. If several files have the
// same name, the file that it loads depends on the order of the entries and on details of the
// runtime's version. So the launcher passes at most one path for each name, and reports the files
// that are shadowed by it.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace quillon::host {

// A file that this launch will not load because another file has the same name.
struct Shadow {
  std::string name;    // in the spelling of the losing file
  std::string loser;   // path
  std::string winner;  // path
};

// A trusted platform assembly that the runtime would not accept.
struct Rejection {
  std::string path;
  std::string reason;
};

// The file name without its directory, ".dll" or ".exe", and ".ni", in any case of letters. Empty
// if the file name is not that of an assembly.
std::string simpleNameOf(std::string_view path);

class AssemblyTable {
 public:
  // Adds trusted platform assemblies in order. The first path of a name wins, but a native image
  // replaces the IL file in the same folder. Leaves out relative paths and paths that are not
  // assemblies, because one of them makes the runtime reject the whole list.
  void addTrusted(const std::vector<std::string>& paths);

  // Adds a folder of APP_PATHS. The paths of shadows begin with `displayPath` in its place.
  void addFolder(const std::string& directory, const std::string& displayPath);

  // The list for the runtime.
  const std::vector<std::string>& trusted() const { return trusted_; }
  const std::vector<Shadow>& shadows() const { return shadows_; }
  const std::vector<Rejection>& rejections() const { return rejections_; }

 private:
  void addOneTrusted(const std::string& path);
  void resolveConflict(size_t index, const std::string& name, const std::string& path);
  void addShadow(const Shadow& shadow);
  void addFile(const std::string& path, const std::string& realPath);

  struct Winner {
    std::string path;
    std::string realPath;
  };

  std::vector<std::string> trusted_;
  std::unordered_map<std::string, size_t> trustedIndex_;   // key: simple name in lower case
  std::unordered_map<std::string, Winner> folderWinners_;  // the same key
  std::vector<Shadow> shadows_;
  std::vector<Rejection> rejections_;
};

}  // namespace quillon::host
