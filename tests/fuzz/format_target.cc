// Compares my_strinf_format with a model. Input: the size, the arguments, an empty line, the
// format.
#include <algorithm>
#include <charconv>
#include <climits>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/fuzz/target.h"
#include "util/log/log.h"

namespace {

constexpr int kMaxSize = 4096;

int sizeFrom(std::string_view text) {
  int size = 0;
  std::from_chars(text.data(), text.data() + text.size(), size);
  return std::min(size, kMaxSize);
}

// The result of strtol(3) for the first 29 characters; INT_MAX + 1 for larger numbers.
long long indexOf(std::string_view text) {
  constexpr long long kTooLarge = static_cast<long long>(INT_MAX) + 1;
  text = text.substr(0, std::min<std::size_t>({text.size(), 29, text.find('\0')}));
  text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
  const bool negative = text.starts_with('-');
  if (negative || text.starts_with('+')) {
    text.remove_prefix(1);
  }
  long long index = 0;
  for (; !text.empty() && text[0] >= '0' && text[0] <= '9'; text.remove_prefix(1)) {
    index = std::min(10 * index + (text[0] - '0'), kTooLarge);
  }
  return negative ? -index : index;
}

// Returns nullopt if the format refers to an argument that the caller's array does not have: the
// result is then undefined.
std::optional<std::string> model(const std::string& format, const std::vector<std::string>& texts,
                                 int size) {
  std::string output;
  std::size_t at = 0;
  while (size > 1 && at < format.size() && output.size() + 1 < static_cast<std::size_t>(size)) {
    if (format[at] != '{') {
      output.push_back(format[at++]);
      continue;
    }
    const std::size_t close = format.find('}', at);
    if (close == std::string::npos) {
      break;
    }
    const long long index = indexOf(std::string_view(format).substr(at + 1, close - at - 1));
    const bool possible = index >= 0 && index <= INT_MAX;
    if (possible && index >= static_cast<long>(texts.size())) {
      return std::nullopt;
    }
    if (possible) {
      output += texts[static_cast<std::size_t>(index)];
    }
    at = close + 1;
  }
  return output;
}

}  // namespace

FUZZ_TARGET(format) {
  Input input(bytes);
  const int size = sizeFrom(input.line());
  std::vector<std::string> texts;
  for (std::string_view text = input.line(); !text.empty(); text = input.line()) {
    texts.emplace_back(text.substr(0, text.find('\0')));
  }
  const std::string format(input.rest().substr(0, input.rest().find('\0')));
  const auto expected = model(format, texts, size);
  if (!expected) {
    return;
  }

  std::vector<const char*> arguments;
  for (const std::string& text : texts) {
    arguments.push_back(text.c_str());
  }
  const std::unique_ptr<char[]> output(my_strinf_format(format.c_str(), arguments.data(), size));
  FUZZ_REQUIRE(output.get() == *expected);
  // The array has exactly `size` bytes, so that a sanitizer reports a write beyond them.
  if (size > 0) {
    std::memset(output.get(), 0, static_cast<std::size_t>(size));
  }
}
