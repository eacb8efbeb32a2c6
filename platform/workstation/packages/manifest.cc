#include "packages/manifest.h"

#include <fcntl.h>
#include <toml++/toml.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "packages/manifest_reader.h"
#include "packages/manifest_rules.h"
#include "quillon/base/files.h"
#include "quillon/base/folders.h"

namespace quillon::workstation {
namespace {

namespace fs = std::filesystem;

constexpr const char* kIdRemedy = "write an id such as \"org.example.clock\"";
constexpr const char* kRootRemedy =
    "write a path such as \"/opt/usr/apps/org.example.clock\", or leave the key out";
constexpr const char* kExecRemedy =
    "write the assembly's path relative to the package's root, such as \"bin/Clock.dll\"";

// Identifiers in a manifest may omit the namespace that they all share.
std::string withNamespace(const char* prefix, const std::string& identifier) {
  return identifier.starts_with('/') ? prefix + identifier : identifier;
}

std::vector<std::string> privileges(ManifestReader& reader, const toml::table& table) {
  constexpr const char* kKey = "package.privileges";
  constexpr const char* kRemedy = "write a list of strings such as [\"/privilege/internet\"]";
  std::vector<std::string> all;
  const toml::node* node = table.get("privileges");
  if (node == nullptr) {
    return all;
  }
  const toml::array* list = node->as_array();
  if (list == nullptr) {
    reader.mistake(*node, kKey, "is not a list", kRemedy);
    return all;
  }
  for (const toml::node& item : *list) {
    const auto value = item.value_exact<std::string>();
    const std::string wrong =
        value ? wrongWithText(*value) : "contains a value that is not a string";
    if (!wrong.empty()) {
      reader.mistake(item, kKey, wrong, kRemedy);
      return all;
    }
    all.push_back(withNamespace(QUILLON_PRIVILEGE_NAMESPACE, *value));
  }
  return all;
}

using Metadata = std::vector<std::pair<std::string, std::string>>;

// toml++ sorts tables by key; this restores the order of the file.
std::vector<std::pair<std::string, const toml::node*>> inFileOrder(const toml::table& table) {
  std::vector<std::pair<std::string, const toml::node*>> entries;
  for (const auto& [key, node] : table) {
    entries.emplace_back(key.str(), &node);
  }
  const auto place = [](const auto& entry) {
    const toml::source_position& begin = entry.second->source().begin;
    return std::pair(begin.line, begin.column);
  };
  std::stable_sort(entries.begin(), entries.end(),
                   [&](const auto& left, const auto& right) { return place(left) < place(right); });
  return entries;
}

Metadata metadata(ManifestReader& reader, const toml::table& table) {
  constexpr const char* kKey = "application.metadata";
  constexpr const char* kRemedy =
      "write a table of strings such as { \"/velora/metadata/name\" = \"value\" }";
  Metadata all;
  const toml::node* node = table.get("metadata");
  if (node == nullptr) {
    return all;
  }
  if (!node->is_table()) {
    reader.mistake(*node, kKey, "is not a table", kRemedy);
  }
  if (!node->is_table()) {
    return all;
  }
  for (const auto& [key, item] : inFileOrder(*node->as_table())) {
    if (const std::string wrong = wrongWithText(key); !wrong.empty()) {
      reader.mistake(*item, kKey, "has a key that " + wrong, kRemedy);
    }
    const auto value = item->value_exact<std::string>();
    if (!value) {
      reader.mistake(*item, dotted(kKey, key), "is not a string", kRemedy);
    }
    all.emplace_back(withNamespace(QUILLON_METADATA_NAMESPACE, key), value.value_or(""));
  }
  return all;
}

std::string wrongWithComponent(const std::string& component) {
  return component == "ui" || component == "service" ? "" : "is neither \"ui\" nor \"service\"";
}

Application application(ManifestReader& reader, const toml::table& table, const std::string& root) {
  constexpr const char* kName = "application";
  reader.checkKeys(table, kName, {"id", "exec", "type", "component", "metadata"});
  Application result;
  result.id = reader.text(table, kName, "id", wrongWithId, kIdRemedy);
  const auto wrongHere = [&](const std::string& exec) { return wrongWithExec(exec, root); };
  result.exec = execPath(reader.text(table, kName, "exec", wrongHere, kExecRemedy), root);
  result.type = reader
                    .optionalText(table, kName, "type", wrongWithType,
                                  "write inhouse, inhouseapitest, dotnet or normal")
                    .value_or(result.type);
  result.service = reader.optionalText(table, kName, "component", wrongWithComponent,
                                       "write \"ui\" or \"service\"") == "service";
  result.metadata = metadata(reader, table);
  return result;
}

void addApplication(ManifestReader& reader, const toml::table& table, Package& package) {
  Application added = application(reader, table, package.rootPath);
  for (const Application& other : package.applications) {
    if (other.id == added.id && !added.id.empty()) {
      reader.mistake(*table.get("id"), "application.id", "'" + added.id + "' occurs twice",
                     "give each application an id of its own");
    }
  }
  package.applications.push_back(std::move(added));
}

void readApplications(ManifestReader& reader, const toml::table& document, Package& package) {
  const toml::node* node = document.get("application");
  if (node == nullptr) {
    return;
  }
  const toml::array* list = node->as_array();
  if (list == nullptr || !list->is_homogeneous(toml::node_type::table)) {
    reader.mistake(*node, "application", "is not a list of tables",
                   "write [[application]], with two brackets, before each application");
    return;
  }
  for (const toml::node& item : *list) {
    addApplication(reader, *item.as_table(), package);
  }
}

// The folder that contains a manifest.
struct ManifestFolder {
  fs::path path;
  Descriptor folder;
};

// Opens the folder that the key "files" names. Follows no symbolic link: another user may be able
// to change the folder, but not to read everything that the installing user can read.
Descriptor openFiles(const ManifestFolder& manifest, const fs::path& files, std::string& wrong) {
  Descriptor opened = openFolderWithoutLinks(manifest.folder.get(), files);
  if (!opened) {
    const int cause = errno;
    std::error_code error;
    const bool isFolder = fs::is_directory(manifest.path / files, error);
    wrong = !isFolder          ? "does not name a folder"
            : cause == ENOTDIR ? "contains a symbolic link"
                               : std::string("cannot be opened: ") + std::strerror(cause);
    wrong += ": '" + (manifest.path / files).string() + "'";
  }
  return opened;
}

Manifest readPackage(ManifestReader& reader, const toml::table& table,
                     const ManifestFolder& folder) {
  constexpr const char* kName = "package";
  reader.checkKeys(table, kName, {"id", "version", "root", "privileges", "files"});
  Manifest manifest;
  Package& package = manifest.package;
  package.id = reader.text(table, kName, "id", wrongWithId, kIdRemedy);
  package.version =
      reader.text(table, kName, "version", wrongWithText, "write a version such as \"1.0.0\"");
  package.rootPath = reader.optionalText(table, kName, "root", wrongWithRoot, kRootRemedy)
                         .value_or("/opt/usr/apps/" + package.id);
  package.privileges = privileges(reader, table);
  const auto inFolder = [&](const std::string& files) {
    std::string wrong = wrongWithText(files);
    if (wrong.empty()) {
      manifest.filesFolder = openFiles(folder, files, wrong);
    }
    return wrong;
  };
  if (const auto files = reader.optionalText(table, kName, "files", inFolder,
                                             "name a folder, relative to the manifest's")) {
    manifest.files = (folder.path / *files).lexically_normal();
  }
  return manifest;
}

Expected<Manifest> readDocument(const toml::table& document, const fs::path& path,
                                const ManifestFolder& folder) {
  ManifestReader reader(path);
  const toml::node* node = document.get("package");
  if (node == nullptr || !node->is_table()) {
    reader.mistake(node == nullptr ? document : *node, "package",
                   node == nullptr ? "is missing" : "is not a table",
                   "begin the manifest with a [package] table");
    return tl::unexpected(*reader.failure());
  }
  reader.checkKeys(document, "", {"package", "application"});
  Manifest manifest = readPackage(reader, *node->as_table(), folder);
  readApplications(reader, document, manifest.package);
  if (reader.failure()) {
    return tl::unexpected(*reader.failure());
  }
  return manifest;
}

tl::unexpected<Failure> unreadable(const fs::path& path, const std::string& cause) {
  return fail("cannot read the manifest '" + path.string() + "': " + cause,
              "name a readable TOML file");
}

Expected<ManifestFolder> openFolderOf(const fs::path& path) {
  const fs::path folder = fs::absolute(path).parent_path();
  Descriptor opened(open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!opened) {
    return unreadable(path, std::strerror(errno));
  }
  return ManifestFolder{folder, std::move(opened)};
}

Expected<std::string> contents(const ManifestFolder& folder, const fs::path& path) {
  const fs::path opened = "/proc/self/fd/" + std::to_string(folder.folder.get());
  if (auto text = readWholeFile(opened / path.filename(), kMaxTextSize)) {
    return std::move(*text);
  }
  return unreadable(path, fileErrorText(errno, kMaxTextSize));
}

}  // namespace

Expected<ManifestText> readManifestText(const std::string& file) {
  ASSIGN_OR_RETURN(const ManifestFolder folder, openFolderOf(file));
  ASSIGN_OR_RETURN(std::string text, contents(folder, file));
  return ManifestText{file, std::move(text)};
}

Expected<Manifest> readManifest(const ManifestText& manifest) {
  const std::string& file = manifest.file;
  ASSIGN_OR_RETURN(const ManifestFolder folder, openFolderOf(file));
  try {
    // Without the name of the file, which toml++ would copy in a noexcept constructor.
    return readDocument(toml::parse(manifest.text), file, folder);
  } catch (const toml::parse_error& error) {
    const toml::source_position& begin = error.source().begin;
    return fail(file + ':' + std::to_string(begin.line) + ':' + std::to_string(begin.column) +
                    ": this is not valid TOML: " + std::string(error.description()),
                "correct it there");
  }
}

Expected<Manifest> readManifest(const fs::path& path) {
  ASSIGN_OR_RETURN(const ManifestText manifest, readManifestText(path.string()));
  return readManifest(manifest);
}

}  // namespace quillon::workstation
