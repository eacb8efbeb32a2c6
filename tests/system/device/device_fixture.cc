#include "tests/system/device/device_fixture.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>

#include "tests/support/signature.h"
#include "workstation/packages.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

constexpr char kLog[] = "/tmp/log.jsonl";
constexpr char kTrace[] = "/tmp/trace.json";

// Parses a file with one JSON object per line, with or without an array around them.
std::vector<json> objectsOf(const std::string& text) {
  std::vector<json> result;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind('{', 0) == 0) {
      result.push_back(json::parse(line.substr(0, line.find_last_of('}') + 1)));
    }
  }
  return result;
}

std::vector<DeviceRecord> recordsOf(const std::string& text) {
  std::vector<DeviceRecord> result;
  for (const json& object : objectsOf(text)) {
    result.push_back({object["priority"], object["tag"], object["text"]});
  }
  return result;
}

void readTrace(const std::string& text, DriverRun& run) {
  for (const json& event : objectsOf(text)) {
    if (event["ph"] == "i") {
      run.markers.push_back(event["name"]);
    } else if (event["ph"] == "B") {
      run.spans.push_back(asGccSpells(event["name"]));
    }
  }
}

int complain(const Failure& failure) {
  std::cout << failure.what << "; " << failure.remedy << std::endl;
  return 100;
}

// Runs in the child, inside the device root. Returns only on failure.
int exec(std::vector<std::string> command, const std::vector<std::string>& manifests) {
  for (const std::string& manifest : manifests) {
    if (auto installed = workstation::installPackage(manifest); !installed) {
      return complain(installed.error());
    }
  }
  setenv("QUILLON_LOG", (std::string("json:") + kLog).c_str(), 1);
  setenv("QUILLON_TRACE", kTrace, 1);
  std::vector<char*> arguments;
  for (std::string& text : command) {
    arguments.push_back(text.data());
  }
  arguments.push_back(nullptr);
  execv(arguments[0], arguments.data());
  std::cout << "cannot run " << command[0] << std::endl;
  return 100;
}

}  // namespace

std::string DeviceRecord::message() const {
  const std::size_t origin = text.find(") > \x1b[");
  const std::size_t begin = text.find('m', origin) + 1;
  return text.substr(begin, text.rfind("\x1b[0m") - begin);
}

bool DeviceRecord::isTrace() const { return text.rfind("log.h: ", 0) == 0; }

nlohmann::json DriverRun::result(const std::string& step, int n) const {
  for (const json& line : results) {
    if (line["step"] == step && n-- == 0) {
      return line.value("result", json());
    }
  }
  ADD_FAILURE() << "no result of step " << step << " in: " << output;
  return {};
}

std::vector<std::string> DriverRun::lines() const {
  std::vector<std::string> result;
  for (const DeviceRecord& record : log) {
    if (!record.isTrace()) {
      result.push_back(std::to_string(record.priority) + " " + record.message());
    }
  }
  return result;
}

std::vector<std::string> DriverRun::messages(int priority) const {
  std::vector<std::string> result;
  for (const std::string& line : lines()) {
    if (line[0] - '0' == priority) {
      result.push_back(line.substr(2));
    }
  }
  return result;
}

std::vector<std::string> DriverRun::linesFrom(const std::string& first) const {
  std::vector<std::string> result = lines();
  result.erase(result.begin(), std::find(result.begin(), result.end(), first));
  return result;
}

void DeviceLaunch::SetUp() {
  DeviceRootTest::SetUp();
  if (IsSkipped() || HasFatalFailure()) {
    return;
  }
  for (const char* folder :
       {"/opt/usr/home/owner/share/dotnet", "/opt/usr/apps", "/opt/etc", "/etc", "/tmp"}) {
    fs::create_directories(onMachine(folder));
  }
  fs::remove(onMachine("/etc/dotnet_flag.ini"));
  fs::remove(onMachine("/opt/etc/dotnet_flag.ini"));
}

void DeviceLaunch::put(const std::string& path, const std::string& content) {
  write(onMachine(path), content);
}

fs::path DeviceLaunch::onMachine(const std::string& path) const { return root_ / path.substr(1); }

std::string DeviceLaunch::read(const std::string& path) const {
  return quillon::test::read(onMachine(path));
}

bool DeviceLaunch::exists(const std::string& path) const {
  return fs::exists(fs::symlink_status(onMachine(path)));
}

void DeviceLaunch::keepCaches() {
  put("/etc/dotnet_flag.ini", "same");
  put("/opt/etc/dotnet_flag.ini", "same");
}

void DeviceLaunch::install(const std::string& manifest) {
  const std::string path = "/opt/usr/manifest" + std::to_string(manifests_.size()) + ".toml";
  put(path, manifest);
  manifests_.push_back(path);
}

void DeviceLaunch::installApplication(const std::string& id, const std::string& metadata,
                                      bool privileged) {
  install("[package]\nid = \"" + id + "\"\nversion = \"1\"\nprivileges = [" +
          (privileged ? "\"/privilege/internal/default/platform\"" : "") +
          "]\n[[application]]\nid = \"" + id +
          "\"\nexec = \"bin/A.dll\"\n[application.metadata]\n" + metadata + "\n");
}

void DeviceLaunch::makeApplication(const std::string& id, const std::string& metadata) {
  installApplication(id, metadata);
  run({});
  put("/opt/usr/apps/" + id + "/bin/A.dll");
}

DriverRun DeviceLaunch::run(const std::vector<std::string>& steps, const std::string& package) {
  fs::remove(onMachine(kLog));
  fs::remove(onMachine(kTrace));
  const std::vector<std::string> manifests = std::move(manifests_);
  manifests_.clear();
  const fs::path build = fs::path(QUILLON_PLUGIN).parent_path().parent_path();
  const Outcome outcome = inChild([&] {
    if (auto entered = device::enter(root_, {.visible = {build}}); !entered) {
      return complain(entered.error());
    }
    std::vector<std::string> command = {driver_, plugin_};
    if (!package.empty()) {
      command.push_back("register=" + package);
    }
    command.insert(command.end(), steps.begin(), steps.end());
    return exec(command, manifests);
  });
  DriverRun result;
  result.status = outcome.status;
  result.output = outcome.output;
  result.results = objectsOf(outcome.output);
  result.log = recordsOf(read(kLog));
  readTrace(read(kTrace), result);
  EXPECT_NE(result.status, 100) << outcome.output;
  EXPECT_NE(result.status, 3) << outcome.output;
  return result;
}

}  // namespace quillon::test
