#include "packages/process_identity.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <string>
#include <string_view>

#include "quillon/base/descriptor.h"
#include "quillon/base/files.h"

namespace quillon::workstation {
namespace {

constexpr size_t kLongest = 4096;  // of the kernel's line, several times
constexpr int kStartTimeField = 22;

}  // namespace

std::optional<uint64_t> processStartTime(pid_t pid) {
  const std::string path = "/proc/" + std::to_string(pid) + "/stat";
  const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  std::array<char, kLongest> buffer;
  const ssize_t length = file ? read(file.get(), buffer.data(), buffer.size()) : -1;
  if (length <= 0) return std::nullopt;
  std::string_view fields(buffer.data(), static_cast<size_t>(length));
  // Field 2 is the process name in parentheses and may hold anything; field 3 follows the last one.
  const size_t nameEnd = fields.rfind(')');
  if (nameEnd == std::string_view::npos) return std::nullopt;
  fields.remove_prefix(nameEnd + 1);
  for (int field = 2; field < kStartTimeField; ++field) {
    fields.remove_prefix(std::min(fields.find(' '), fields.size()));
    fields.remove_prefix(std::min<size_t>(1, fields.size()));
  }
  uint64_t start = 0;
  const auto parsed = std::from_chars(fields.data(), fields.data() + fields.size(), start);
  if (parsed.ec != std::errc()) return std::nullopt;
  return start;
}

}  // namespace quillon::workstation
