// The files that the runtime of a worker has loaded before the worker has a launch. Their contents
// stay in the process, so the worker must not serve a launch after one of them has changed.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace quillon::launchpad {

class LoadedFiles {
 public:
  // Records the state of files that the runtime may load. Call before it does.
  void record(const std::vector<std::string>& files);

  // Keeps the records of the files that have been loaded. Returns false if one of them has changed
  // since record(), or if one is neither recorded nor trusted, and keeps all records then.
  //
  // trusted  files that the worker's own fingerprint includes
  [[nodiscard]] bool keep(const std::vector<std::string>& loaded,
                          const std::vector<std::string>& trusted);

  // Whether no file whose record is kept has changed since record().
  [[nodiscard]] bool areCurrent() const;

 private:
  std::map<std::string, std::string> identities_;  // by path
};

}  // namespace quillon::launchpad
