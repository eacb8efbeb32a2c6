#include "quillon/cli/device_command.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "device_paths.h"
#include "quillon/base/files.h"
#include "quillon/base/report.h"
#include "quillon/base/shell_word.h"
#include "quillon/cli/command.h"
#include "quillon/cli/device_option.h"
#include "quillon/cli/new_device.h"
#include "quillon/device/cached_lists.h"
#include "quillon/device/certificates.h"
#include "quillon/device/device_root.h"
#include "quillon/dotnet/runtime_lookup.h"

namespace quillon::cli {
namespace {

namespace fs = std::filesystem;

// Exit statuses of a shell that cannot start a command.
constexpr int kCannotRun = 126;
constexpr int kCommandNotFound = 127;

struct InitRequest {
  fs::path directory;
  std::string framework;
};

struct AuthorityRequest {
  fs::path device;
  fs::path file;
};

struct ShellRequest {
  fs::path directory;
  std::vector<fs::path> writable;
  std::vector<std::string> command;
};

bool hasOwnFramework(const fs::path& directory) {
  std::error_code error;
  const fs::path own = device::pathInDevice(directory, device_paths::kNetcoreapp);
  return fs::is_directory(own, error) && !fs::is_empty(own, error);
}

std::optional<fs::path> namedFramework(const fs::path& directory) {
  std::error_code error;
  if (!fs::is_regular_file(directory / "libcoreclr.so", error)) {
    endCommand(report({"the folder '" + directory.string() + "' holds no libcoreclr.so",
                       "name the folder of the runtime, for example "
                       "/usr/share/dotnet/shared/Microsoft.NETCore.App/VERSION, or 'none'",
                       kNoRuntime}));
  }
  std::cout << "framework: " << directory.string() << '\n';
  return directory;
}

// Without a runtime on this machine, a device root is made without a framework. But if the user
// named a folder in QUILLON_DOTNET_ROOT, a missing runtime is an error.
std::optional<fs::path> machineFramework() {
  const auto found = dotnet::findFramework();
  if (found) {
    std::cout << "framework: " << found->directory.string() << " (found through "
              << found->foundThrough << ")\n";
    return found->directory;
  }
  const char* chosen = std::getenv("QUILLON_DOTNET_ROOT");
  if (chosen != nullptr && *chosen != '\0') {
    endCommand(report(withStatus(kNoRuntime, found.error())));
  }
  std::cout << "framework: none; " << found.error().what << "; " << found.error().remedy << '\n';
  return std::nullopt;
}

std::optional<fs::path> frameworkOf(const InitRequest& request) {
  if (request.framework.empty() && hasOwnFramework(request.directory)) {
    std::cout << "framework: the device root's own\n";
    return std::nullopt;
  }
  if (request.framework == "none") {
    std::cout << "framework: none\n";
    return std::nullopt;
  }
  return request.framework.empty() ? machineFramework() : namedFramework(request.framework);
}

void print(const device::InitOptions& options) {
  if (options.preload.empty()) {
    std::cout << "preload: none; it was not built, since there was no .NET SDK\n";
  }
  std::cout << "certificates: "
            << (options.certificates.empty()
                    ? "none; this machine has no file of certificate authorities; install "
                      "ca-certificates and run this again"
                    : options.certificates.string())
            << '\n';
}

void runInit(const InitRequest& request) {
  const device::InitOptions options = initOptions(frameworkOf(request));
  print(options);
  valueOf(device::init(request.directory, options));
  valueOf(device::removeCachedLists(request.directory));  // the framework may be another one
  std::cout << "device root: " << fs::canonical(request.directory).string() << '\n';
}

void addAuthority(const AuthorityRequest& request) {
  const auto text = readWholeFile(request.file, device::kMaxCertificates);
  if (!text) {
    endCommand(report({"cannot read '" + request.file.string() +
                           "': " + fileErrorText(errno, device::kMaxCertificates),
                       "name a file of certificates that you may read", kUsage}));
  }
  const std::vector<std::string> certificates = device::certificatesIn(*text);
  if (certificates.empty()) {
    endCommand(report({"'" + request.file.string() + "' holds no certificate in PEM form",
                       "convert it: openssl x509 -inform der -in " +
                           shellWord(request.file.string()) + " -out FILE.pem",
                       kUsage}));
  }
  enterDevice(request.device);
  const size_t added = valueOf(device::addAuthorities(certificates));
  std::cout << added << " of " << certificates.size() << " certificates added to "
            << device_paths::kUpdatedCertificates << '\n';
}

// Keeps only characters that have no meaning in the expansion of a shell prompt.
std::string promptName(const fs::path& directory) {
  std::string name = directory.filename().string();
  for (char& letter : name) {
    if (std::isalnum(static_cast<unsigned char>(letter)) == 0 &&
        std::strchr("._-", letter) == nullptr) {
      letter = '_';
    }
  }
  return name;
}

// Most shells take PS1 from the environment. bash sets it in its start-up file, so PROMPT_COMMAND
// adds the mark before each prompt.
void setPrompt(const fs::path& directory) {
  const std::string mark = "(" + promptName(directory) + ") ";
  setenv("PS1", (mark + "\\$ ").c_str(), 1);
  setenv("PROMPT_COMMAND", ("PS1=\"" + mark + "${PS1#\"" + mark + "\"}\"").c_str(), 1);
}

std::vector<std::string> commandOf(const ShellRequest& request) {
  if (!request.command.empty()) {
    return request.command;
  }
  const char* shell = std::getenv("SHELL");
  return {shell != nullptr && *shell != '\0' ? shell : "/bin/sh"};
}

[[noreturn]] void execute(const std::vector<std::string>& command) {
  std::vector<char*> arguments;
  arguments.reserve(command.size() + 1);
  for (const std::string& word : command) {
    arguments.push_back(const_cast<char*>(word.c_str()));
  }
  arguments.push_back(nullptr);
  execvp(arguments[0], arguments.data());
  const int error = errno;
  report({"cannot run '" + command[0] + "': " + std::strerror(error), "", kUsage});
  endCommand(error == ENOENT ? kCommandNotFound : kCannotRun);
}

// Replaces this process, so that our parent sees the command's exit status or signal.
[[noreturn]] void runShell(const ShellRequest& request) {
  std::error_code error;
  const device::EnterOptions options{{fs::current_path(error)}, request.writable};
  const auto entered = valueOf(device::enter(request.directory, options));
  if (entered.noHome) {
    report(*entered.noHome);
  }
  const fs::path directory = device::current().value_or(request.directory);
  setenv("QUILLON_DEVICE", directory.c_str(), 1);
  setPrompt(directory);
  execute(commandOf(request));
}

void addInit(CLI::App& device) {
  auto request = std::make_shared<InitRequest>();
  CLI::App* init = device.add_subcommand("init", "Make a device root, or repair one");
  init->add_option("DIR", request->directory, "Device root; created if it is missing")->required();
  init->add_option("--framework", request->framework,
                   "Folder of a .NET runtime, or none; default: the newest")
      ->type_name("DIR");
  init->callback([request] { runInit(*request); });
}

void addShell(CLI::App& device) {
  auto request = std::make_shared<ShellRequest>();
  CLI::App* shell = device.add_subcommand("shell", "Run a shell or a command inside a device root");
  shell->add_option("DIR", request->directory, "Device root")->required();
  shell->add_option("--writable", request->writable, "Path that stays writable")
      ->type_name("PATH")
      ->allow_extra_args(false);
  shell->add_option("COMMAND", request->command,
                    "Command and arguments, also after --; default: $SHELL");
  shell->callback([request] {
    const std::vector<std::string>& rest = programArguments();
    request->command.insert(request->command.end(), rest.begin(), rest.end());
    runShell(*request);
  });
}

void addCa(CLI::App& device) {
  CLI::App* ca = device.add_subcommand("ca", "Choose the certificate authorities to trust");
  ca->require_subcommand(1);
  auto request = std::make_shared<AuthorityRequest>();
  CLI::App* add = ca->add_subcommand("add", "Trust further authorities in the device root");
  addDeviceOption(*add, request->device);
  add->add_option("FILE", request->file, "Certificates of the authorities, in PEM form")
      ->required();
  add->callback([request] { addAuthority(*request); });
}

}  // namespace

void addDeviceCommand(CLI::App& app) {
  CLI::App* device = app.add_subcommand("device", "Make device roots and run commands inside them");
  device->require_subcommand(1);
  addInit(*device);
  addShell(*device);
  addCa(*device);
}

}  // namespace quillon::cli
