#include "launcher/whole_file.h"

#include <fstream>
#include <system_error>

namespace quillon::launcher {

std::optional<std::string> readWholeFile(const std::filesystem::path& file) {
  std::error_code error;
  const std::uintmax_t size = std::filesystem::file_size(file, error);
  std::ifstream stream;
  if (!error) stream.open(file, std::ios::binary);
  if (!stream.is_open()) return std::nullopt;
  std::string content(size, '\0');
  stream.read(content.data(), static_cast<std::streamsize>(size));
  content.resize(static_cast<size_t>(stream.gcount()));
  return content;
}

}  // namespace quillon::launcher
