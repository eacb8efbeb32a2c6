// One simple name, one assembly.
//
// The runtime looks an assembly up by its simple name: first among the trusted platform assemblies,
// whatever the case of the letters, then in each folder of APP_PATHS in turn. Where one name has
// several files, which of them it takes depends on the order of entries and on details of its
// version. The launcher therefore hands it at most one path for a name, and can tell which path
// each other file lost to.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace quillon::host {

// A file that no assembly of this launch will be loaded from, since another has its name.
struct Shadow {
  std::string name;    // as the losing file spells it
  std::string loser;   // path
  std::string winner;  // path
};

// A trusted platform assembly that the runtime could not take.
struct Rejection {
  std::string path;
  std::string reason;
};

// File name without directory, without ".dll" or ".exe", and without ".ni", whatever the case.
// Empty for a file that is no assembly.
std::string simpleNameOf(std::string_view path);

class AssemblyTable {
 public:
  // Takes the trusted platform assemblies in order. The first path of a name stays, but a native
  // image takes the place of the IL file beside it. Relative paths and paths that are no assembly,
  // of which one would make the runtime refuse the whole list, are left out.
  void addTrusted(const std::vector<std::string>& paths);

  // Takes one more folder of APP_PATHS; `shownAs` stands for it in the paths of shadows.
  void addFolder(const std::string& directory, const std::string& shownAs);

  // The list to hand to the runtime.
  const std::vector<std::string>& trusted() const { return trusted_; }
  const std::vector<Shadow>& shadows() const { return shadows_; }
  const std::vector<Rejection>& rejections() const { return rejections_; }

 private:
  void addOneTrusted(const std::string& path);
  void settle(size_t index, const std::string& name, const std::string& path);
  void note(const Shadow& shadow);
  void addFile(const std::string& path, const std::string& realPath);

  struct Winner {
    std::string path;
    std::string realPath;
  };

  std::vector<std::string> trusted_;
  std::unordered_map<std::string, size_t> trustedIndex_;   // key: lower-case simple name
  std::unordered_map<std::string, Winner> folderWinners_;  // key as above
  std::vector<Shadow> shadows_;
  std::vector<Rejection> rejections_;
};

}  // namespace quillon::host
