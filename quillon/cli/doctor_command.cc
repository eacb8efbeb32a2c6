#include "quillon/cli/doctor_command.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "device_paths.h"
#include "quillon/base/files.h"
#include "quillon/base/report.h"
#include "quillon/base/shell_word.h"
#include "quillon/cli/application_log.h"
#include "quillon/cli/command.h"
#include "quillon/cli/device_option.h"
#include "quillon/cli/json_output.h"
#include "quillon/device/cached_lists.h"
#include "quillon/device/device_root.h"
#include "quillon/device/record.h"
#include "quillon/dotnet/runtime_lookup.h"
#include "quillon/launchpad/client/client.h"
#include "quillon/zone/zones.h"
#include "workstation/packages.h"

namespace quillon::cli {
namespace {

namespace fs = std::filesystem;

struct DoctorRequest {
  fs::path device;
  bool json = false;
};

struct Finding {
  std::string subject;
  const char* level;
  Failure text;  // without a remedy if all is well
};

std::string countOf(std::size_t number, const char* one, const char* several) {
  return std::to_string(number) + " " + (number == 1 ? one : several);
}

// Examines one thing after the other and keeps what it finds.
class Doctor {
 public:
  explicit Doctor(fs::path device) : device_(std::move(device)) {}

  void examineAll();
  [[nodiscard]] const std::vector<Finding>& findings() const { return findings_; }
  // The status of the first error.
  [[nodiscard]] int status() const { return status_; }

 private:
  void examineRuntime();
  bool examineDeviceRoot();
  void examinePermissions();
  void examineLabels();
  void examineLaunchPad();
  void examineZones();
  void examineFlags();
  void examineLeftovers();
  void examineLogs();
  bool examineNamespaces();
  void examineRegistry();
  void examineCaches();

  void ok(const std::string& subject, const std::string& what) {
    findings_.push_back({subject, "ok", {what, {}}});
  }
  void warning(const std::string& subject, Failure failure) {
    findings_.push_back({subject, "warning", std::move(failure)});
  }
  void error(const std::string& subject, Failure failure) {
    status_ = status_ == kSuccess ? failure.status : status_;
    findings_.push_back({subject, "error", std::move(failure)});
  }
  [[nodiscard]] std::string withDevice(const std::string& command) const {
    return command + " --device " + shellWord(device_.string());
  }
  [[nodiscard]] std::string initCommand() const {
    return "quillon device init " + shellWord(device_.string());
  }

  fs::path device_;
  std::vector<Finding> findings_;
  int status_ = kSuccess;
};

void Doctor::examineAll() {
  examineRuntime();
  examineLabels();
  if (!examineDeviceRoot()) {
    return;
  }
  examinePermissions();
  examineLaunchPad();
  examineZones();
  examineFlags();
  examineLeftovers();
  examineLogs();
  // The others need the device's paths, so the process enters the device root.
  if (examineNamespaces()) {
    examineRegistry();
    examineCaches();
  }
}

void Doctor::examineRuntime() {
  constexpr char kSubject[] = "runtime";
  const auto found = dotnet::findFramework();
  if (!found) {
    return warning(kSubject, found.error());
  }
  ok(kSubject, ".NET " + found->version + " in '" + found->directory.string() + "'");
}

void Doctor::examineLabels() {
  const bool isEnforced = access("/sys/fs/smackfs", F_OK) == 0;
  ok("labels", isEnforced ? "enforced by this kernel" : "without effect on this kernel");
}

bool Doctor::examineDeviceRoot() {
  constexpr char kSubject[] = "device root";
  const auto record = withStatus(kNoDeviceRoot, device::readRecord(device_));
  if (!record) {
    error(kSubject, record.error());
    return false;
  }
  const fs::path framework =
      record->framework.value_or(device::pathInDevice(device_, device_paths::kNetcoreapp));
  std::error_code failed;
  if (fs::exists(framework / "libcoreclr.so", failed)) {
    ok(kSubject, "'" + device_.string() + "' with the framework '" + framework.string() + "'");
  } else if (fs::is_directory(framework, failed)) {
    error(kSubject, {"its framework '" + framework.string() + "' holds no libcoreclr.so",
                     "install a .NET runtime, then: " + initCommand(), kNoRuntime});
  } else {
    error(kSubject, {"its framework '" + framework.string() + "' is gone",
                     "find it again: " + initCommand(), kNoRuntime});
  }
  return true;
}

void Doctor::examinePermissions() {
  constexpr char kSubject[] = "permissions";
  constexpr std::array kFolders = {device_paths::kCacheDirectory, device_paths::kApplications,
                                   "/opt/usr/share/quillon", "/tmp"};
  bool isFine = true;
  for (const char* folder : kFolders) {
    const fs::path path = device::pathInDevice(device_, folder);
    if (access(path.c_str(), W_OK | X_OK) == 0) {
      continue;
    }
    isFine = false;
    const int cause = errno;
    error(kSubject,
          {"cannot write to '" + path.string() + "': " + std::strerror(cause),
           cause == ENOENT ? "make it: " + initCommand()
                           : "run this as its owner, or change that: chown -R " +
                                 std::to_string(geteuid()) + " " + shellWord(device_.string())});
  }
  if (isFine) {
    ok(kSubject, "the folders of launches and packages are writable");
  }
}

void Doctor::examineLaunchPad() {
  ok("launch pad", launchpad::isServed(device_) ? "runs" : "does not run; launches are direct");
}

void Doctor::examineZones() {
  constexpr char kSubject[] = "zones";
  const auto zones = zone::list(device_);
  if (!zones) {
    return error(kSubject, zones.error());
  }
  for (const zone::Zone& zone : *zones) {
    if (zone.holder < 0) {
      warning(kSubject, {"the zone '" + zone.name + "' ended without being stopped",
                         "clean up: " + withDevice("quillon zone stop " + shellWord(zone.name))});
    } else {
      ok(kSubject, "'" + zone.name + "' runs");
    }
  }
  if (zones->empty()) {
    ok(kSubject, "none runs");
  }
}

// The plug-in compares the two files at every launch.
void Doctor::examineFlags() {
  constexpr char kSubject[] = "flags";
  const fs::path readOnly = device::pathInDevice(device_, device_paths::kReadOnlyFlags);
  const fs::path writable = device::pathInDevice(device_, device_paths::kWritableFlags);
  const auto current = readWholeFile(writable, kMaxTextSize);
  if (current && *current == readWholeFile(readOnly, kMaxTextSize).value_or("")) {
    return ok(kSubject, "the same in both files");
  }
  warning(kSubject, {"'" + readOnly.string() + "' and '" + writable.string() +
                         "' differ, so that every launch removes the cached lists",
                     "make them alike: cp " + shellWord(readOnly.string()) + " " +
                         shellWord(writable.string())});
}

// The sum and the number of the regular files in `folder` that `matches` accepts by their names.
struct FileSizes {
  std::uintmax_t bytes = 0;
  std::size_t files = 0;
};

FileSizes sizesOf(const fs::path& folder, bool (*matches)(const std::string& name)) {
  FileSizes sizes;
  std::error_code failed;
  for (fs::directory_iterator entry(folder, failed), end; !failed && entry != end;
       entry.increment(failed)) {
    std::error_code ignored;
    if (matches(entry->path().filename()) && !entry->is_symlink(ignored) &&
        entry->is_regular_file(ignored)) {
      sizes.bytes += entry->file_size(ignored);
      ++sizes.files;
    }
  }
  return sizes;
}

// Error files of the plug-in, and the dumps of the runtime and of the kernel.
bool isLeftover(const std::string& name) {
  const bool isErrorFile = name.starts_with("dotnet_error.") && name.ends_with(".log");
  return isErrorFile || name.starts_with("coredump.") || name.starts_with("core.");
}

void Doctor::examineLeftovers() {
  constexpr char kSubject[] = "leftovers";
  const fs::path folder = device::pathInDevice(device_, "/tmp");
  const FileSizes sizes = sizesOf(folder, isLeftover);
  if (sizes.files == 0) {
    return ok(kSubject, "no error files or dumps");
  }
  constexpr std::uintmax_t kKibibyte = 1024;
  warning(kSubject,
          {countOf(sizes.files, "error file or dump", "error files and dumps") + " with " +
               std::to_string((sizes.bytes + kKibibyte - 1) / kKibibyte) + " KiB",
           "remove them: find " + shellWord(folder.string()) +
               " -maxdepth 1 -type f '(' -name 'dotnet_error.*.log' -o -name 'coredump.*'"
               " -o -name 'core.*' ')' -delete"});
}

// A log is replaced at the next detached launch only, and its application may run for long.
void Doctor::examineLogs() {
  constexpr char kSubject[] = "logs";
  constexpr std::uintmax_t kMebibyte = 1 << 20;
  constexpr std::uintmax_t kManyMebibytes = 64;
  const fs::path folder = logFolder(device_);
  const FileSizes sizes = sizesOf(folder, [](const std::string&) { return true; });
  const std::uintmax_t mebibytes = sizes.bytes / kMebibyte;
  if (mebibytes < kManyMebibytes) {
    return ok(kSubject, countOf(sizes.files, "file", "files") + " of detached applications with " +
                            std::to_string(mebibytes) + " MiB");
  }
  warning(kSubject, {"the logs of detached applications have " + std::to_string(mebibytes) + " MiB",
                     "empty them: find " + shellWord(folder.string()) +
                         " -maxdepth 1 -type f -exec truncate -s 0 '{}' +"});
}

bool Doctor::examineNamespaces() {
  constexpr char kSubject[] = "namespaces";
  const auto entered = device::enter(device_, {});
  if (!entered) {
    error(kSubject, entered.error());
    return false;
  }
  ok(kSubject, "the device root can be entered");
  return true;
}

void Doctor::examineRegistry() {
  constexpr char kSubject[] = "registry";
  const auto packages = workstation::listPackages();
  if (!packages) {
    return error(kSubject, packages.error());
  }
  for (const workstation::Package& package : *packages) {
    for (const workstation::Application& application : package.applications) {
      std::error_code failed;
      if (!fs::exists(application.exec, failed)) {
        warning(kSubject, {"'" + application.exec + "' of '" + application.id + "' is missing",
                           "install it again, or remove it: " +
                               withDevice("quillon package remove " + shellWord(package.id))});
      }
    }
  }
  ok(kSubject, countOf(packages->size(), "package", "packages"));
}

void Doctor::examineCaches() {
  constexpr char kSubject[] = "caches";
  const device::CachedLists lists = device::readCachedLists();
  bool isFine = true;
  for (const device::CachedList& list : {lists.trusted, lists.shared}) {
    if (!list.outdated.empty()) {
      isFine = false;
      warning(kSubject,
              {device::outdatedList(list).what, "remove it: " + withDevice("quillon cache clear")});
    }
  }
  if (isFine) {
    ok(kSubject, "current, or made by the next launch");
  }
}

void printText(const std::vector<Finding>& findings) {
  constexpr int kLevelWidth = 9;
  constexpr int kSubjectWidth = 13;
  for (const Finding& finding : findings) {
    const Failure& text = finding.text;
    std::cout << std::left << std::setw(kLevelWidth) << finding.level << std::setw(kSubjectWidth)
              << finding.subject
              << oneLine(text.what + (text.remedy.empty() ? "" : "; " + text.remedy)) << '\n';
  }
}

Json toJson(const std::vector<Finding>& findings) {
  Json all = Json::array();
  for (const Finding& finding : findings) {
    const std::string& remedy = finding.text.remedy;
    all.push_back({{"subject", finding.subject},
                   {"level", finding.level},
                   {"what", finding.text.what},
                   {"remedy", remedy.empty() ? Json() : Json(remedy)}});
  }
  return all;
}

void runDoctor(const DoctorRequest& request) {
  std::error_code ignored;
  Doctor doctor(fs::absolute(request.device, ignored));
  doctor.examineAll();
  request.json ? printJson(toJson(doctor.findings())) : printText(doctor.findings());
  endCommand(doctor.status());
}

}  // namespace

void addDoctorCommand(CLI::App& app) {
  CLI::App* const command = app.add_subcommand("doctor", "Find what keeps launches from working");
  const auto request = std::make_shared<DoctorRequest>();
  addDeviceOption(*command, request->device);
  command->add_flag(kJsonFlag, request->json, kJsonHelp);
  command->footer(
      "Each line is ok, warning or error, and ends with the command that mends it.\n"
      "The exit status is 0 if there is no error.");
  command->callback([request] { runDoctor(*request); });
}

}  // namespace quillon::cli
