#include "config/config_file.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>

#include "data_paths.h"
#include "path_failure.h"
#include "quillon/base/descriptor.h"
#include "quillon/base/directory_entries.h"
#include "quillon/base/files.h"
#include "quillon/base/folders.h"
#include "quillon/base/shell_word.h"

namespace quillon::workstation {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kIntPrefix = "int ";
constexpr std::string_view kStringPrefix = "string ";
// A temporary file's name adds a dot and a suffix, and must not exceed NAME_MAX.
constexpr size_t kMaxComponentLength = 200;

bool isComponent(std::string_view part) {
  // Temporary files have names that begin with a dot.
  return !part.empty() && part.size() <= kMaxComponentLength && part[0] != '.' &&
         std::none_of(part.begin(), part.end(),
                      [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; });
}

bool isKey(std::string_view key) {
  for (size_t start = 0;;) {
    const size_t end = key.find('/', start);
    if (!isComponent(key.substr(start, end - start))) {
      return false;
    }
    if (end == key.npos) {
      return true;
    }
    start = end + 1;
  }
}

// Flushes the folder of a key, and all folders above it that belong to the store: another process
// may have created them a moment ago. Returns false with errno on failure.
bool flushFolders(const std::string& folder) {
  return flushFolder(fileOfKey(folder)) &&
         (folder.empty()
              ? flushFolder(kDataDirectory) && flushFolder(fs::path(kDataDirectory).parent_path())
              : flushFolders(folderOfKey(folder)));
}

// A temporary file that replaces the key's file when it is completely on disk. Deleted otherwise.
class Replacement {
 public:
  explicit Replacement(fs::path target)
      : target_(std::move(target)),
        path_((target_.parent_path() / ("." + target_.filename().string() + ".XXXXXX")).string()),
        file_(mkostemp(path_.data(), O_CLOEXEC)),
        made_(static_cast<bool>(file_)) {}
  ~Replacement() {
    if (made_) {
      unlink(path_.c_str());
    }
  }
  Replacement(const Replacement&) = delete;
  Replacement& operator=(const Replacement&) = delete;

  // False with errno on failure.
  bool finish(std::string_view bytes) {
    if (!write(bytes) || rename(path_.c_str(), target_.c_str()) != 0) {
      return false;
    }
    made_ = false;
    return true;
  }

 private:
  // Closes the file before the rename: a later close would be reported as a second change.
  bool write(std::string_view bytes) {
    constexpr mode_t kMode = 0644;
    const bool whole = file_ && fchmod(file_.get(), kMode) == 0 && writeAll(file_.get(), bytes) &&
                       fsync(file_.get()) == 0;
    const int cause = errno;
    file_.reset();
    errno = cause;
    return whole;
  }

  fs::path target_;
  std::string path_;
  Descriptor file_;
  bool made_;  // exists under its temporary name
};

Failure cannotWrite(const std::string& key, int error) {
  if (auto obstacle = obstacleOf(key)) {
    return *std::move(obstacle);
  }
  errno = error;
  return failAt("cannot write the configuration file", fileOfKey(key)).value();
}

tl::unexpected<Failure> cannotList(const fs::path& folder) {
  return failAt("cannot list the configuration folder", folder, "check its permissions");
}

// Another process may remove a group or a key meanwhile. Does not use the iterators of
// std::filesystem, which end the process if memory runs out.
Expected<void> addKeysBelow(const std::string& group, std::vector<std::string>& keys) {
  const fs::path path = fileOfKey(group);
  const Descriptor folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder) {
    return errno == ENOENT || errno == ENOTDIR ? Expected<void>() : cannotList(path);
  }
  const std::vector<std::string> names = directoryEntries(folder.get());
  if (errno != 0 && errno != ENOENT) {
    return cannotList(path);
  }
  for (const std::string& name : names) {
    const std::string key = group.empty() ? name : group + "/" + name;
    struct stat status {};
    if (!isKey(key)) {
      continue;
    }
    if (fstatat(folder.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
      RETURN_IF_FAILED(errno == ENOENT ? Expected<void>() : cannotList(path));
    } else if (S_ISDIR(status.st_mode)) {
      RETURN_IF_FAILED(addKeysBelow(key, keys));
    } else if (S_ISREG(status.st_mode) || S_ISLNK(status.st_mode)) {
      keys.push_back(key);
    }
  }
  return {};
}

std::string setAgain(const std::string& key) {
  return "set the key again: quillon config set " + shellWord(key) + " VALUE";
}

}  // namespace

Expected<void> checkKey(std::string_view key) {
  if (isKey(key)) {
    return {};
  }
  return fail("'" + std::string(key) + "' is not a configuration key",
              "write one such as db/dotnet/velora_api_path: parts of at most 200 bytes, joined by "
              "'/', none of which is empty or begins with '.'");
}

fs::path fileOfKey(std::string_view key) { return fs::path(kConfigDirectory) / key; }

std::string folderOfKey(std::string_view key) {
  const size_t slash = key.rfind('/');
  return std::string(slash == key.npos ? std::string_view() : key.substr(0, slash));
}

std::string formatValue(const ConfigValue& value) {
  if (const int* number = std::get_if<int>(&value)) {
    return std::string(kIntPrefix) + std::to_string(*number) + '\n';
  }
  return std::string(kStringPrefix) + std::get<std::string>(value);
}

std::optional<int> parseDecimal(std::string_view text) {
  int number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) {
    return std::nullopt;
  }
  return number;
}

std::optional<ConfigValue> parseValue(std::string_view bytes) {
  if (bytes.starts_with(kStringPrefix)) {
    return ConfigValue(std::string(bytes.substr(kStringPrefix.size())));
  }
  if (!bytes.starts_with(kIntPrefix) || !bytes.ends_with('\n')) {
    return std::nullopt;
  }
  bytes.remove_prefix(kIntPrefix.size());
  bytes.remove_suffix(1);
  if (const auto number = parseDecimal(bytes)) {
    return ConfigValue(*number);
  }
  return std::nullopt;
}

Expected<std::optional<ConfigValue>> readKey(const std::string& key) {
  RETURN_IF_FAILED(checkKey(key));
  const fs::path path = fileOfKey(key);
  const auto bytes = readWholeFile(path, kMaxTextSize);
  if (!bytes) {
    const int error = errno;
    // EISDIR: the key is a folder of other keys and has no value itself.
    if (error == ENOENT || error == ENOTDIR || error == EISDIR) {
      return std::optional<ConfigValue>();
    }
    return fail("cannot read the configuration file '" + path.string() +
                    "': " + fileErrorText(error, kMaxTextSize),
                setAgain(key));
  }
  auto value = parseValue(*bytes);
  if (value) {
    return value;
  }
  return fail("the configuration file '" + path.string() + "' has no valid value", setAgain(key));
}

std::optional<Failure> obstacleOf(const std::string& key) {
  std::error_code ignored;
  if (fs::is_directory(fileOfKey(key), ignored)) {
    return Failure{"'" + key + "' is not a key but a group of keys",
                   "list them: quillon config list " + shellWord(key)};
  }
  for (std::string group = folderOfKey(key); !group.empty(); group = folderOfKey(group)) {
    if (fs::is_regular_file(fileOfKey(group), ignored)) {
      return Failure{"'" + key + "' cannot be a key, because '" + group + "' is one",
                     "remove that: quillon config unset " + shellWord(group)};
    }
  }
  return std::nullopt;
}

Expected<void> writeKey(const std::string& key, const ConfigValue& value) {
  RETURN_IF_FAILED(checkKey(key));
  const fs::path path = fileOfKey(key);
  const std::string bytes = formatValue(value);
  if (bytes.size() > kMaxTextSize) {
    return fail("the value of '" + key + "' is " + fileErrorText(EFBIG, kMaxTextSize),
                "set a shorter one");
  }
  const auto write = [&] {
    return makeFolders(path.parent_path()) && Replacement(path).finish(bytes) &&
           flushFolders(folderOfKey(key));
  };
  // A second time, since removeKey() may remove the folder before the file is in it.
  if (write() || (errno == ENOENT && write())) {
    return {};
  }
  return tl::unexpected(cannotWrite(key, errno));
}

Expected<bool> removeKey(const std::string& key) {
  RETURN_IF_FAILED(checkKey(key));
  const fs::path path = fileOfKey(key);
  if (unlink(path.c_str()) != 0) {
    if (errno == ENOENT || errno == ENOTDIR || errno == EISDIR) {
      return false;
    }
    return failAt("cannot remove the configuration file", path);
  }
  std::string group = folderOfKey(key);
  while (!group.empty() && rmdir(fileOfKey(group).c_str()) == 0) {  // fails if it is not empty
    group = folderOfKey(group);
  }
  if (!flushFolder(fileOfKey(group)) && errno != ENOENT) {  // another process may have removed it
    return failAt("cannot remove the configuration file", path);
  }
  return true;
}

Expected<std::vector<std::string>> keysBelow(const std::string& group) {
  std::vector<std::string> keys;
  RETURN_IF_FAILED(addKeysBelow(group, keys));
  std::sort(keys.begin(), keys.end());
  return keys;
}

}  // namespace quillon::workstation
