#include "quillon/device/record.h"

#include <fcntl.h>
#include <toml++/toml.h>

#include <cerrno>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>

#include "quillon/base/files.h"
#include "quillon/base/folders.h"
#include "quillon/base/shell_word.h"
#include "quillon/device/layout.h"

namespace quillon::device {
namespace {

constexpr int64_t kFormat = 1;

std::string initRemedy(const std::filesystem::path& directory) {
  return "create one: quillon device init " + shellWord(directory.string());
}

Expected<Record> interpret(const toml::table& table, const std::filesystem::path& file) {
  if (table["format"].value_or(int64_t{0}) != kFormat) {
    return fail("'" + file.string() + "' has a format that this version does not know",
                "use the version of quillon that made the device root, or create a new one");
  }
  Record record;
  if (const auto framework = table["framework"].value<std::string>()) {
    record.framework = *framework;
  }
  return record;
}

}  // namespace

Expected<Record> readRecord(const std::filesystem::path& directory) {
  const std::filesystem::path file = directory / kRecord;
  std::error_code error;
  if (!std::filesystem::is_directory(directory, error)) {
    if (error == std::errc::permission_denied) {
      return fail("cannot look into '" + directory.string() + "': " + error.message(),
                  "let its owner run this, or get permission to read it");
    }
    return fail("there is no folder '" + directory.string() + "'", initRemedy(directory));
  }
  if (!std::filesystem::is_regular_file(file, error)) {
    return fail("'" + directory.string() + "' is not a device root", initRemedy(directory));
  }
  const auto unreadable = [&](std::string_view cause) {
    return fail("cannot read '" + file.string() + "': " + std::string(cause),
                "write it again: quillon device init " + shellWord(directory.string()));
  };
  const auto text = readWholeFile(file, kMaxTextSize);
  if (!text) {
    return unreadable(fileErrorText(errno, kMaxTextSize));
  }
  try {
    // Without the name of the file, which toml++ would copy in a noexcept constructor.
    return interpret(toml::parse(*text), file);
  } catch (const toml::parse_error& wrong) {
    return unreadable(wrong.description());
  }
}

Expected<void> writeRecord(const std::filesystem::path& directory, const Record& record) {
  toml::table table{{"format", kFormat}};
  if (record.framework) {
    table.insert("framework", record.framework->string());
  }
  std::ostringstream text;
  text << table << '\n';
  const Descriptor root(open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  const Descriptor folder = openFolderWithoutLinks(root.get(), kRecordDirectory);
  if (replaceFile(folder.get(), std::filesystem::path(kRecord).filename(), text.str())) {
    return {};
  }
  return fail("cannot write '" + (directory / kRecord).string() + "'", "make the folder writable");
}

}  // namespace quillon::device
