#include <algorithm>
#include <array>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "util/log/log.h"

namespace {

// Size of the buffer for an index. Further digits are ignored.
constexpr std::size_t kIndexBuffer = 30;

// Returns the index in a placeholder, or -1 if it cannot be the index of an array. The length of
// the array is known only to the caller.
int placeholderIndex(std::string_view text) {
  std::array<char, kIndexBuffer> buffer{};
  text.copy(buffer.data(), buffer.size() - 1);
  // An index that is too large becomes LLONG_MAX. On 32-bit machines LONG_MAX is INT_MAX.
  const long long index = std::strtoll(buffer.data(), nullptr, 10);
  return index < 0 || index > INT_MAX ? -1 : static_cast<int>(index);
}

void appendArgument(std::string& output, const char** args, int index) {
  if (args != nullptr && index >= 0 && args[index] != nullptr) {
    output += args[index];
  }
}

// Replaces placeholders until the text ends or the output has `limit` bytes. The limit is checked
// only between pieces, so an argument is always copied completely.
std::string replacePlaceholders(std::string_view format, const char** args, std::size_t limit) {
  std::string output;
  for (std::size_t at = 0; at < format.size() && output.size() < limit; ++at) {
    if (format[at] != '{') {
      output += format[at];
      continue;
    }
    const std::size_t close = format.find('}', at);
    if (close == std::string_view::npos) {
      break;
    }
    appendArgument(output, args, placeholderIndex(format.substr(at + 1, close - at - 1)));
    at = close;
  }
  return output;
}

}  // namespace

char* my_strinf_format(const char* format, const char** args, int size) {
  std::string text;
  if (format != nullptr && size > 1) {
    text = replacePlaceholders(format, args, static_cast<std::size_t>(size) - 1);
  }
  const std::size_t room = std::max<std::size_t>(text.size() + 1, size > 0 ? size : 1);
  char* output = new char[room];
  std::memcpy(output, text.c_str(), text.size() + 1);
  return output;
}
