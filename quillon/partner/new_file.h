// A file that appears under its name only once it is whole and on the disk.
#pragma once

#include <filesystem>
#include <string>

#include "quillon/base/failure.h"

namespace quillon::partner {

class NewFile {
 public:
  explicit NewFile(std::filesystem::path path);
  // Takes a file that was not given its name away again.
  ~NewFile();
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  // Writes `content` under a temporary name in the same folder.
  [[nodiscard]] Expected<void> write(const std::string& content);
  // Gives the file its name, in place of one that has it.
  [[nodiscard]] Expected<void> publish();

 private:
  std::filesystem::path path_;
  std::filesystem::path temporary_;
};

}  // namespace quillon::partner
