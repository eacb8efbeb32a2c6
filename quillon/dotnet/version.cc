#include "quillon/dotnet/version.h"

#include <algorithm>
#include <sstream>
#include <string_view>
#include <vector>

namespace quillon::dotnet {
namespace {

std::vector<std::string> partsOf(const std::string& text) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, '.');) {
    parts.push_back(part);
  }
  return parts;
}

bool isNumber(std::string_view part) {
  return !part.empty() && part.find_first_not_of("0123456789") == std::string_view::npos;
}

// Compares as text, so that numbers of any length do not overflow.
bool isLowerNumber(std::string_view a, std::string_view b) {
  a.remove_prefix(std::min(a.find_first_not_of('0'), a.size()));
  b.remove_prefix(std::min(b.find_first_not_of('0'), b.size()));
  return a.size() != b.size() ? a.size() < b.size() : a < b;
}

bool isLowerPart(const std::string& a, const std::string& b) {
  if (isNumber(a) != isNumber(b)) {
    return isNumber(a);
  }
  return isNumber(a) ? isLowerNumber(a, b) : a < b;
}

bool isLower(const std::string& a, const std::string& b) {
  const std::vector<std::string> left = partsOf(a);
  const std::vector<std::string> right = partsOf(b);
  return std::lexicographical_compare(left.begin(), left.end(), right.begin(), right.end(),
                                      isLowerPart);
}

struct Version {
  std::string release;
  std::string preview;
};

Version parse(const std::string& text) {
  const std::string plain = text.substr(0, text.find('+'));
  const std::size_t dash = plain.find('-');
  return {plain.substr(0, dash), dash == std::string::npos ? "" : plain.substr(dash + 1)};
}

}  // namespace

bool isPreferred(const std::string& other, const std::string& version) {
  const Version a = parse(version);
  const Version b = parse(other);
  if (a.preview.empty() != b.preview.empty()) {
    return b.preview.empty();
  }
  if (a.release != b.release) {
    return isLower(a.release, b.release);
  }
  return isLower(a.preview, b.preview);
}

}  // namespace quillon::dotnet
