// Writes a file that appears under its name only when it is complete and on disk.
#pragma once

#include <filesystem>
#include <string>

#include "quillon/base/failure.h"

namespace quillon::partner {

class NewFile {
 public:
  explicit NewFile(std::filesystem::path path);
  // Removes the temporary file if publish() did not succeed.
  ~NewFile();
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  // Writes `content` under a temporary name in the same folder.
  [[nodiscard]] Expected<void> write(const std::string& content);
  // Renames the temporary file to the final name. Replaces an existing file.
  [[nodiscard]] Expected<void> publish();

 private:
  std::filesystem::path path_;
  std::filesystem::path temporary_;
};

}  // namespace quillon::partner
