// The parser of assembly file names. Input: one name or path.
#include <cctype>

#include "plugin/src/plugin-util/assembly_discovery.h"
#include "tests/fuzz/target.h"

namespace {

std::string lowered(std::string text) {
  for (char& c : text) {
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return text;
}

std::string endOf(const std::string& text, std::size_t length) {
  return text.size() < length ? std::string() : text.substr(text.size() - length);
}

bool modelOfImage(const std::string& name) {
  return name.size() >= 7 && lowered(name).substr(name.size() - 7, 3) == ".ni";
}

bool endsLikeAnAssembly(const std::string& name) {
  const std::string extension = lowered(endOf(name, 4));
  return extension == ".dll" || extension == ".exe";
}

std::string modelOfName(std::string path) {
  if (path.find('/') != path.npos) {
    path.erase(0, path.rfind('/') + 1);
  }
  if (path.find('.') != path.npos) {
    path.erase(path.rfind('.'));
  }
  if (path.size() >= 4 && endOf(path, 3) == ".ni") {
    path.resize(path.size() - 3);
  }
  return path;
}

std::string modelOfStripped(const std::string& path) {
  if (path.size() <= 4) {
    return path;
  }
  std::string rest = path;
  if (endsLikeAnAssembly(rest)) {
    rest.resize(rest.size() - 4);
  }
  if (lowered(endOf(rest, 3)) == ".ni") {
    rest.resize(rest.size() - 3);
  }
  return rest;
}

}  // namespace

FUZZ_TARGET(assembly_names) {
  const std::string name(bytes);
  FUZZ_REQUIRE(isNativeImage(name) == modelOfImage(name));
  FUZZ_REQUIRE(isManagedAssembly(name) == (endsLikeAnAssembly(name) && !modelOfImage(name)));
  FUZZ_REQUIRE(getAssemblyNameFromPath(name) == modelOfName(name));
  FUZZ_REQUIRE(stripNiDLL(name) == modelOfStripped(name));
}
