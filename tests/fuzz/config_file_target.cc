// Keys and files of the configuration store. Input: a key on a line, then a file.
#include "config/config_file.h"
#include "tests/fuzz/target.h"

namespace {

using namespace quillon::workstation;

void requireKeyStaysInItsFolder(const std::string& key) {
  if (!checkKey(key)) {
    return;
  }
  const std::filesystem::path top = fileOfKey("x").parent_path();
  const std::filesystem::path file = fileOfKey(key);
  FUZZ_REQUIRE(file == top / key);
  FUZZ_REQUIRE(file.lexically_normal() == file);
  FUZZ_REQUIRE(file.string().starts_with(top.string() + "/"));
  FUZZ_REQUIRE(file.filename().native().front() != '.');
  const std::string folder = folderOfKey(key);
  FUZZ_REQUIRE(folder.empty() ? key.find('/') == key.npos : key.starts_with(folder + "/"));
  FUZZ_REQUIRE(folder.empty() || checkKey(folder));
}

void requireWrittenIsRead(const ConfigValue& value) {
  FUZZ_REQUIRE(parseValue(formatValue(value)) == value);
}

}  // namespace

FUZZ_TARGET(config_file) {
  Input input(bytes);
  requireKeyStaysInItsFolder(std::string(input.line()));

  const std::string_view file = input.rest();
  requireWrittenIsRead(std::string(file));
  if (const auto number = parseDecimal(file)) {
    requireWrittenIsRead(*number);
    FUZZ_REQUIRE(parseValue("int " + std::string(file) + "\n") == ConfigValue(*number));
  }
  const auto value = parseValue(file);
  if (!value) {
    return;
  }
  requireWrittenIsRead(*value);
  if (std::holds_alternative<std::string>(*value)) {
    FUZZ_REQUIRE(formatValue(*value) == file);
  } else {
    FUZZ_REQUIRE(file.starts_with("int ") && file.ends_with("\n"));
    FUZZ_REQUIRE(file.find_first_not_of("int -0123456789\n") == file.npos);
  }
}
