// The helpers that split paths and names. Input: two lines, and the rest as a third text.
#include <algorithm>
#include <cctype>

#include "tests/fuzz/target.h"
#include "util/zq_utils/paths.h"

namespace {

bool holdsAt(const std::string& text, std::size_t at, const std::string& part) {
  return text.compare(at, part.size(), part) == 0;
}

void requireFileAndDirectoryMakeThePath(const std::string& path) {
  const std::string name = getFileName(path);
  const std::string directory = getBaseName(path);
  FUZZ_REQUIRE(name.find('/') == name.npos);
  FUZZ_REQUIRE(getFileName(name) == name);
  FUZZ_REQUIRE(getBaseName(name) == ".");
  if (path.find('/') == path.npos) {
    FUZZ_REQUIRE(name == path);
    FUZZ_REQUIRE(directory == ".");
  } else {
    FUZZ_REQUIRE(directory + "/" + name == path);
  }
}

void requireOneSlashBetween(const std::string& directory, const std::string& name) {
  const std::string joined = concatPath(directory, name);
  FUZZ_REQUIRE(joined == directory + name || joined == directory + "/" + name);
  FUZZ_REQUIRE(joined[joined.size() - name.size() - 1] == '/');
  const bool hadOne = !directory.empty() && directory.back() == '/';
  FUZZ_REQUIRE((joined == directory + name) == hadOne);
}

void requirePiecesMakeTheList(const std::string& list) {
  std::vector<std::string> pieces{"kept"};
  splitPath(list, pieces);
  std::string joined;
  for (const std::string& piece : pieces) {
    FUZZ_REQUIRE(piece.find(':') == piece.npos);
    joined += piece + ":";
  }
  // Each piece ends at a separator or, for the last piece, at the end of the list.
  FUZZ_REQUIRE(joined == "kept:" + list || joined == "kept:" + list + ":");
  FUZZ_REQUIRE(pieces.size() ==
               1 + static_cast<std::size_t>(std::count(list.begin(), list.end(), ':') +
                                            (list.empty() || list.back() == ':' ? 0 : 1)));
}

std::string replacedOneByOne(const std::string& text, const std::string& pattern,
                             const std::string& replacement) {
  std::string result;
  for (std::size_t at = 0; at < text.size();) {
    const bool here = !pattern.empty() && holdsAt(text, at, pattern);
    here ? result.append(replacement) : result.append(1, text[at]);
    at += here ? pattern.size() : 1;
  }
  return result;
}

void requireComparisonByCharacters(const std::string& a, const std::string& b) {
  const std::size_t length = std::min(a.size(), b.size());
  for (std::size_t offset = 0; offset <= length && offset < 8; ++offset) {
    bool equal = true;
    for (std::size_t i = offset; i < length; ++i) {
      equal = equal && std::tolower(static_cast<unsigned char>(a[i])) ==
                           std::tolower(static_cast<unsigned char>(b[i]));
    }
    FUZZ_REQUIRE(iCompare(a, offset, b, offset, length - offset) == equal);
  }
  FUZZ_REQUIRE(!iCompare(a, 0, b, 0, length + 1) || a.size() != b.size());
  FUZZ_REQUIRE(!iCompare(a, a.size() + 1, b, 0, 0));
  FUZZ_REQUIRE(!iCompare(a, 1, b, 0, std::string::npos));
}

// Resolving a resolved path changes nothing. Excludes /proc, whose files come and go.
void requireResolvedPathsStay(const std::string& path) {
  const std::string resolved = getAbsolutePath(path);
  if (resolved.empty() || resolved.starts_with("/proc/")) {
    return;
  }
  FUZZ_REQUIRE(resolved.front() == '/');
  FUZZ_REQUIRE(getAbsolutePath(resolved) == resolved);
  FUZZ_REQUIRE(isRealPath(resolved));
}

}  // namespace

FUZZ_TARGET(paths) {
  Input input(bytes);
  const std::string first(input.line());
  const std::string second(input.line());
  const std::string third(input.rest());
  requireFileAndDirectoryMakeThePath(third);
  requireOneSlashBetween(first, second);
  requirePiecesMakeTheList(third);
  printAll(third);
  FUZZ_REQUIRE(replaceAll(third, first, second) == replacedOneByOne(third, first, second));
  FUZZ_REQUIRE(startWith(third, first) ==
               (first.size() <= third.size() && holdsAt(third, 0, first)));
  FUZZ_REQUIRE(endWith(third, first) == (first.size() <= third.size() &&
                                         holdsAt(third, third.size() - first.size(), first)));
  requireComparisonByCharacters(first, second);
  requireResolvedPathsStay(first);
  requireResolvedPathsStay(second + third);
}
