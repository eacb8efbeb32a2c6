// Package manifests. Input: the manifest.
#include <algorithm>
#include <charconv>
#include <filesystem>
#include <set>

#include "packages/manifest.h"
#include "tests/fuzz/target.h"
#include "tests/support/temporary_directory.h"

namespace {

namespace fs = std::filesystem;
using quillon::workstation::Application;
using quillon::workstation::Package;

bool isPrintable(const std::string& text) {
  return !text.empty() && std::none_of(text.begin(), text.end(), [](char c) {
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7f;
  });
}

bool isId(const std::string& text) {
  return isPrintable(text) && text.size() <= 200 && text != "." && text != ".." &&
         text.find('/') == text.npos && text.find(':') == text.npos;
}

// No path leaves its folder through "..".
bool hasNoWayUp(const std::string& path) {
  return ("/" + path + "/").find("/../") == std::string::npos;
}

void requireApplication(const Application& application, const std::string& root) {
  FUZZ_REQUIRE(isId(application.id));
  FUZZ_REQUIRE(isPrintable(application.type));
  FUZZ_REQUIRE(isPrintable(application.exec));
  FUZZ_REQUIRE(application.exec.front() == '/');
  FUZZ_REQUIRE(hasNoWayUp(application.exec));
  FUZZ_REQUIRE(application.exec.back() != '/');
  FUZZ_REQUIRE(application.exec != root);
  for (const auto& [key, value] : application.metadata) {
    FUZZ_REQUIRE(isPrintable(key));
    FUZZ_REQUIRE(key.front() != '/');
  }
}

void requirePackage(const Package& package) {
  FUZZ_REQUIRE(isId(package.id));
  FUZZ_REQUIRE(isPrintable(package.version));
  FUZZ_REQUIRE(isPrintable(package.rootPath));
  FUZZ_REQUIRE(package.rootPath.find(':') == std::string::npos);
  FUZZ_REQUIRE(fs::path(package.rootPath).lexically_normal() == package.rootPath);
  FUZZ_REQUIRE(hasNoWayUp(package.rootPath));
  FUZZ_REQUIRE(package.rootPath.starts_with("/opt/usr/apps/") ||
               package.rootPath.starts_with("/usr/apps/") ||
               package.rootPath.starts_with("/opt/share/"));
  for (const std::string& privilege : package.privileges) {
    FUZZ_REQUIRE(isPrintable(privilege));
    FUZZ_REQUIRE(privilege.front() != '/');
  }
  std::set<std::string> ids;
  for (const Application& application : package.applications) {
    requireApplication(application, package.rootPath);
    FUZZ_REQUIRE(ids.insert(application.id).second);
  }
}

// Removes ":NUMBER" from the front.
unsigned long takeNumber(std::string_view& text) {
  FUZZ_REQUIRE(text.starts_with(':'));
  unsigned long number = 0;
  const auto result = std::from_chars(text.data() + 1, text.data() + text.size(), number);
  FUZZ_REQUIRE(result.ec == std::errc());
  text.remove_prefix(static_cast<std::size_t>(result.ptr - text.data()));
  return number;
}

// The message has the form "FILE:LINE:COLUMN: what", and the file has such a line.
void requirePlace(std::string_view failure, const std::string& file, std::string_view bytes) {
  FUZZ_REQUIRE(failure.starts_with(file));
  failure.remove_prefix(file.size());
  const unsigned long line = takeNumber(failure);
  const unsigned long column = takeNumber(failure);
  const auto lines = static_cast<unsigned long>(std::count(bytes.begin(), bytes.end(), '\n')) + 1;
  FUZZ_REQUIRE(line >= 1 && line <= lines);
  FUZZ_REQUIRE(column >= 1 && column <= bytes.size() + 1);
  FUZZ_REQUIRE(failure.starts_with(": ") && failure.size() > 2);
}

// Each input is written to the same file, which is beside a folder "files".
struct ManifestFile {
  ManifestFile() { fs::create_directory(folder.path() / "files"); }

  quillon::test::TemporaryDirectory folder;
  std::string path = folder.path() / "m.toml";
};

}  // namespace

FUZZ_TARGET(manifest) {
  static const ManifestFile file;
  const std::string& path = file.path;
  const auto manifest = readManifest(quillon::workstation::ManifestText{path, std::string(bytes)});
  if (!manifest) {
    requirePlace(manifest.error().what, path, bytes);
    FUZZ_REQUIRE(!manifest.error().remedy.empty());
    return;
  }
  requirePackage(manifest->package);
  if (manifest->files) {
    FUZZ_REQUIRE(fs::is_directory(*manifest->files));
  }
}
