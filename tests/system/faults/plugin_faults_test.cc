// Launches in which one allocation, one call of the C library or one call of the platform fails,
// for each of them in turn.
//
// QUILLON_FAULTS_SAMPLE=N checks every Nth case only.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string_view>
#include <thread>
#include <vector>

#include "device_paths.h"
#include "platform/dlog.h"
#include "quillon/base/descriptor.h"
#include "quillon_tv_plugin.h"
#include "tests/support/figure.h"
#include "tests/system/faults/failing_calls.h"
#include "tests/system/faults/failing_memory.h"
#include "tests/system/faults/plugin_launch.h"
#include "tests/system/torture/device_main.h"
#include "tests/unit/platform/sample_package.h"
#include "workstation/log_config.h"

namespace quillon::faults {
namespace {

namespace fs = std::filesystem;

using ::testing::ContainsRegex;
using ::testing::IsSubsetOf;

// The functions of the C library that the plug-in calls and that can fail, with their errors.
const std::vector<Failure>& failuresOfLibc() {
  static const std::vector<Failure> failures = {{"access", -1, ENOENT},
                                                {"access", -1, EACCES},
                                                {"access", -1, EIO},
                                                {"cap_init", 0, ENOMEM},
                                                {"cap_set_proc", -1, EPERM},
                                                {"chmod", -1, EPERM},
                                                {"chown", -1, EPERM},
                                                {"lchown", -1, EPERM},
                                                {"clock_gettime", -1, EINVAL},
                                                {"connect", -1, ECONNREFUSED},
                                                {"connect", -1, EINTR},
                                                {"dladdr1", 0, 0},
                                                {"dlinfo", -1, 0},
                                                {"dlopen", 0, ENOMEM},
                                                {"dlsym", 0, 0},
                                                {"dup2", -1, EBADF},
                                                {"dup2", -1, EINTR},
                                                {"dup3", -1, EBADF},
                                                {"fcntl", -1, EMFILE},
                                                {"fdopen", 0, ENOMEM},
                                                {"fclose", -1, EIO},
                                                {"fflush", -1, ENOSPC},
                                                {"fgetc", -1, EIO},
                                                {"fopen", 0, EMFILE},
                                                {"fopen", 0, EACCES},
                                                {"fputc", -1, ENOSPC},
                                                {"fputs", -1, ENOSPC},
                                                {"fread", 0, EIO},
                                                {"fseek", -1, EIO},
                                                {"fstat", -1, EIO},
                                                {"fsync", -1, EIO},
                                                {"ftell", -1, EIO},
                                                {"fwrite", 0, ENOSPC},
                                                {"getenv", 0, 0},
                                                {"getsockopt", -1, EBADF},
                                                {"ioctl", -1, ENOTTY},
                                                {"lstat", -1, EIO},
                                                {"lstat", -1, ENOENT},
                                                {"malloc", 0, ENOMEM},
                                                {"mkdir", -1, EACCES},
                                                {"mkfifo", -1, EACCES},
                                                {"nanosleep", -1, EINTR},
                                                {"open", -1, EMFILE},
                                                {"open", -1, ENOENT},
                                                {"open", -1, EACCES},
                                                {"open", -1, EIO},
                                                {"opendir", 0, EMFILE},
                                                {"opendir", 0, EACCES},
                                                {"opendir", 0, ENOENT},
                                                {"pipe", -1, EMFILE},
                                                {"poll", -1, EINTR},
                                                {"prctl", -1, EINVAL},
                                                {"pthread_create", EAGAIN, 0},
                                                {"pthread_detach", EINVAL, 0},
                                                {"pthread_setname_np", ERANGE, 0},
                                                {"pthread_sigmask", EINVAL, 0},
                                                {"read", -1, EIO},
                                                {"read", -1, EINTR},
                                                {"readdir", 0, EIO},
                                                {"readdir", 0, 0},
                                                {"readlink", -1, EACCES},
                                                {"realpath", 0, ENOENT},
                                                {"realpath", 0, EACCES},
                                                {"realpath", 0, ENOMEM},
                                                {"remove", -1, EROFS},
                                                {"rename", -1, EROFS},
                                                {"select", -1, EINTR},
                                                {"send", -1, EPIPE},
                                                {"setenv", -1, ENOMEM},
                                                {"setvbuf", -1, EINVAL},
                                                {"sigaction", -1, EINVAL},
                                                {"signal", -1, EINVAL},
                                                {"snprintf", -1, EOVERFLOW},
                                                {"socket", -1, EMFILE},
                                                {"stat", -1, EIO},
                                                {"stat", -1, ENOENT},
                                                {"syscall", -1, EAGAIN},
                                                {"time", -1, EFAULT},
                                                {"usleep", -1, EINTR},
                                                {"write", -1, EIO},
                                                {"write", -1, ENOSPC},
                                                {"write", -1, EINTR}};
  return failures;
}

// Errors of the platform: its services return negative values, and positive ones if they have no
// better one. A call that fails stores nothing.
const std::vector<Failure>& failuresOfPlatform() {
  static const std::vector<Failure> failures = [] {
    std::vector<Failure> all = {{"vconf_get_str", 0, 0}};
    for (const char* name : {"app_info_create",
                             "app_info_destroy",
                             "app_info_foreach_metadata",
                             "app_info_get_package",
                             "app_info_metadata_filter_add",
                             "app_info_metadata_filter_create",
                             "app_info_metadata_filter_destroy",
                             "app_info_metadata_filter_foreach",
                             "aul_app_get_pkgid_bypid",
                             "package_info_create",
                             "package_info_foreach_app_from_package",
                             "package_info_foreach_privilege_info",
                             "pkgmgr_installer_info_get_target_uid",
                             "pkgmgrinfo_appinfo_destroy_appinfo",
                             "pkgmgrinfo_appinfo_get_appinfo",
                             "pkgmgrinfo_appinfo_get_exec",
                             "pkgmgrinfo_appinfo_get_metadata_value",
                             "pkgmgrinfo_pkginfo_destroy_pkginfo",
                             "pkgmgrinfo_pkginfo_get_mainappid",
                             "pkgmgrinfo_pkginfo_get_pkginfo",
                             "pkgmgrinfo_pkginfo_get_root_path",
                             "pkgmgrinfo_pkginfo_get_usr_pkginfo",
                             "smack_getlabel",
                             "smack_lgetlabel",
                             "smack_lsetlabel",
                             "smack_setlabel",
                             "vconf_ignore_key_changed",
                             "vconf_keynode_get_int",
                             "vconf_notify_key_changed",
                             "__dlog_print"}) {
      for (const int error : {-1, -EINVAL, -ENOMEM, -EIO, -2, 1}) {
        all.push_back({name, error, EIO});
      }
    }
    return all;
  }();
  return failures;
}

// The other functions that the plug-in calls when GCC builds it.
[[maybe_unused]] constexpr const char* kCannotFail[] = {
    // Nothing can be done about an error.
    "cap_free",
    "close",
    "closedir",
    "dlclose",
    "free",
    "pthread_mutex_unlock",
    "sync",
    // Without errors, or with errors only after a fault in the plug-in.
    "__errno_location",
    "_exit",
    "difftime",
    "dlerror",
    "exit",
    "fileno",
    "geteuid",
    "getpid",
    "gettid",
    "gnu_get_libc_version",
    "memchr",
    "memcmp",
    "memcpy",
    "memmove",
    "memset",
    "pthread_mutex_lock",
    "raise",
    "sigaddset",
    "sigemptyset",
    "strcmp",
    "strerror_r",
    "strlen",
    "strncpy",
    "strnlen",
    "strrchr",
    "strstr",
    "strtol",
    "strtoll",
    "tolower",
    "trace_begin",
    "trace_end",
    "_Unwind_Resume",
    "__dynamic_cast",
};

// Functions that read folders and ask for packages. If one fails, the list lacks the folder or the
// package, and is saved without it: docs/caches.md.
constexpr std::string_view kReadsLists[] = {"app_info_get_package",
                                            "app_info_metadata_filter_add",
                                            "app_info_metadata_filter_create",
                                            "app_info_metadata_filter_foreach",
                                            "opendir",
                                            "pkgmgr_installer_info_get_target_uid",
                                            "pkgmgrinfo_pkginfo_get_pkginfo",
                                            "pkgmgrinfo_pkginfo_get_root_path",
                                            "pkgmgrinfo_pkginfo_get_usr_pkginfo",
                                            "readdir",
                                            "realpath"};

// The different parts of a list, except packages whose root the platform does not know: they are
// listed with an empty root. Folders that are searched for again in the same process are listed
// again.
std::vector<std::string> partsOf(const std::string& list) {
  std::vector<std::string> parts;
  std::istringstream stream(list);
  for (std::string part; std::getline(stream, part, ':');) {
    if (part != device_paths::kCobaOfPackage && std::ranges::find(parts, part) == parts.end()) {
      parts.push_back(part);
    }
  }
  return parts;
}

// Whether the list is right, except for files and folders that could not be read.
bool isPartOf(const std::string& list, const std::string& right) {
  const auto parts = partsOf(list);
  const auto all = partsOf(right);
  std::size_t found = 0;
  for (std::size_t index = 0; index < all.size() && found < parts.size(); ++index) {
    found += all[index] == parts[found] ? 1 : 0;
  }
  return found == parts.size();
}

// Every Nth case is checked. The threads beside the launcher's have few, so N is smaller there.
std::size_t sampleStep(Threads threads) {
  constexpr std::size_t kOfOthers = 100;
  const char* text = std::getenv("QUILLON_FAULTS_SAMPLE");
  const std::size_t step = text == nullptr ? 307 : std::max(1, std::atoi(text));
  return threads == Threads::kCalling ? step : std::max<std::size_t>(1, step / kOfOthers);
}

class PluginFaults : public torture::DeviceTest {
 protected:
  void SetUp() override {
    torture::DeviceTest::SetUp();
    if (IsSkipped()) {
      return;
    }
    static const bool prepared = [] {
      installPackages();
      // The platform keeps what it has read from a registry that is older than a clock tick.
      std::this_thread::sleep_for(std::chrono::milliseconds(200));
      std::vector<Failure> failures = failuresOfLibc();
      failures.insert(failures.end(), failuresOfPlatform().begin(), failuresOfPlatform().end());
      plugin = loadPlugin();
      watchCalls(plugin, failures);
      keepCaches();
      return true;
    }();
    ASSERT_TRUE(prepared);
  }

  static void installPackages() {
    for (const std::string id : {"allowed", "forbidden"}) {
      test::SamplePackage sample(id);
      if (id == "allowed") {
        sample.add("privileges = ['/privilege/internal/default/platform']");
      }
      sample.add("files = 'files'");
      fs::create_directories(sample.folder() / "files/bin");
      test::writeFile(sample.folder() / "files/bin/A.dll", "");
      sample.add("[[application]]\nid = '" + id +
                 "'\nexec = 'bin/A.dll'\n[application.metadata]\n" +
                 "\"/velora/metadata/support-fs-external-component\" = 'any'");
      const auto installed = sample.install();
      ASSERT_TRUE(installed) << installed.error().what;
    }
  }

  static std::vector<Scenario> scenarios() {
    return {kInHouse,
            {"in-house with caches", "inhouse", "allowed", true},
            {"in-house without the privilege", "inhouse", "forbidden", true},
            {"API test", "inhouseapitest", "allowed", true},
            {"normal", "normal", "allowed", true},
            {"normal without the privilege", "normal", "forbidden", true},
            {"dotnet", "dotnet", "allowed", true}};
  }

  // For what happens in other threads than the launcher's: the readers of captured streams, and the
  // thread that watches the configuration.
  static Scenario inThreads(int changes) {
    return {"other threads", "normal", "allowed", true, true, changes};
  }
  static constexpr int kEnoughChanges = 2000;  // so that one is noticed
  static constexpr int kSomeChanges = 20;

  // A launch in which `before` makes something fail.
  static Result launchWith(
      const Scenario& scenario, const std::function<void()>& before,
      const BeforeCall& beforeEach = [](std::string_view) {}) {
    torture::clearCaches();
    for (const auto& [path, content] : caches) {
      if (scenario.isCached) {
        torture::writeFile(path, content);
      }
    }
    return launch(scenario, before, beforeEach);
  }

  // Keeps the lists of a launch and their caches for other launches.
  static void keepCaches() {
    rightInHouse = launchWith(kInHouse, [] {});
    for (const char* path : {device_paths::kTpaCache, device_paths::kCobaCache}) {
      caches[path] = torture::readFile(path).value();
    }
  }

  enum class Saved { kWhole, kMayLackParts };

  // Checks a launch in which `what` fails, and the caches that it leaves. It must hang twice,
  // because the machine may be busy.
  void judge(const Scenario& scenario, const std::string& what, const Result& right, Saved saved,
             const std::function<void()>& before) {
    constexpr std::size_t kCasesPerLine = 1000;
    if (++cases % kCasesPerLine == 0) {
      std::cout << cases << " cases, " << faults << " faults" << std::endl;
    }
    Result result = launchWith(scenario, before);
    if (result.how == kHangs) {
      result = launchWith(scenario, before);
    }
    std::string fault = faultOf(right, result);
    if (fault.empty() && scenario.changes == kEnoughChanges && !result.hasNoticed) {
      fault = "changes of the configuration are lost";
    }
    if (fault.empty()) {
      fault = faultOfNextLaunch(result, saved);
    }
    if (!fault.empty()) {
      ++faults;
      if (++faultsByKind[fault + " in " + result.function] == 1) {
        ADD_FAILURE() << scenario.name << ", " << what << ": " << fault << " in "
                      << result.function;
      }
    }
  }

  void printFigure(const std::string& what) {
    for (const auto& [kind, count] : faultsByKind) {
      std::cout << count << " times: " << kind << "\n";
    }
    std::cout << nextLaunches << " cases changed a cache" << std::endl;
    test::printFigure(what,
                      std::to_string(cases) + " cases, " + std::to_string(shorterLists) +
                          " saved a list without what could not be read",
                      "0 faults, " + std::to_string(faults) + " found", faults == 0 && cases > 0);
  }

  static bool mayRefuse(const std::string& function) {
    return function == "plugin_initialize" || function == "plugin_set_app_info";
  }

  static inline void* plugin = nullptr;
  static inline const Scenario kInHouse{"in-house", "inhouse", "allowed", false};
  static inline Result rightInHouse;
  static inline std::map<std::string, std::string> caches;
  std::size_t cases = 0;
  std::size_t faults = 0;
  std::size_t nextLaunches = 0;
  std::size_t shorterLists = 0;
  std::map<std::string, std::size_t> faultsByKind;

 private:
  static bool mayThrow(const std::string& thrown) {
    return thrown == "plugin_get_extra_dll_path f" || thrown == "plugin_set_app_info f";
  }

  // Empty if the launch is right.
  static std::string faultOf(const Result& right, const Result& result) {
    if (result.end == Result::End::kKilled) {
      return result.how;
    }
    if (result.end == Result::End::kRefused && !mayRefuse(result.function)) {
      return "the process ends";
    }
    for (const std::string& thrown : result.thrown) {
      if (!mayThrow(thrown)) {
        return "an exception leaves " + thrown;
      }
    }
    if (result.isAccepted && !right.isAccepted) {
      return "a forbidden application is accepted";
    }
    if (result.isLibraryAccepted) {
      return "a forbidden library is accepted";
    }
    if (!isPartOf(result.assemblies, right.assemblies)) {
      return "a wrong list of assemblies";
    }
    return isPartOf(result.folders, right.folders) ? "" : "a wrong list of folders";
  }

  // Whether each cache is missing or right, so that the next launch cannot get a wrong list.
  static bool areCachesRight() {
    return std::ranges::all_of(torture::namesInCacheDirectory(), [](const std::string& name) {
      const auto right = caches.find(device_paths::kCacheDirectory + name);
      return right != caches.end() && torture::readFile(right->first) == right->second;
    });
  }

  // Launches with the caches that the last launch has left, without a failure. Empty if the lists
  // are right. If the last launch could not read everything, they may be those that it has
  // returned.
  std::string faultOfNextLaunch(const Result& last, Saved saved) {
    if (areCachesRight()) {
      return "";
    }
    ++nextLaunches;
    const Result next = launch(kInHouse, [] {});
    if (const std::string fault = faultOf(rightInHouse, next); !fault.empty()) {
      return "in the next launch, " + fault;
    }
    bool isShorter = false;
    for (const auto list : {&Result::assemblies, &Result::folders}) {
      if (partsOf(next.*list) == partsOf(rightInHouse.*list)) {
        continue;
      }
      if (saved == Saved::kWhole || (next.*list).empty() || next.*list != last.*list) {
        return "the next launch gets an incomplete list";
      }
      isShorter = true;
    }
    shorterLists += isShorter ? 1 : 0;
    return "";
  }
};

class PluginCalls : public PluginFaults {
 protected:
  void failEachCall(const std::vector<Failure>& failures, const std::vector<Scenario>& scenarios,
                    Threads threads = Threads::kCalling) {
    std::size_t number = 0;
    for (const Scenario& scenario : scenarios) {
      const Result right = launchWith(scenario, [&] { failAt({}, threads); });
      for (const auto& [failure, calls] : callsMade(failures)) {
        for (std::size_t call = 1; call <= calls; ++call) {
          if (++number % sampleStep(threads) == 0) {
            judge(scenario, textOf(*failure, call), right, savedDespite(*failure), [&] {
              failAt({failure, call}, threads);
            });
          }
        }
      }
    }
  }

 private:
  // The failures, and how often the last launch has called their functions.
  static std::vector<std::pair<const Failure*, std::size_t>> callsMade(
      const std::vector<Failure>& failures) {
    std::vector<std::pair<const Failure*, std::size_t>> made;
    for (const Failure& failure : failures) {
      made.emplace_back(&failure, callsOf(failure.function));
    }
    return made;
  }

  static Saved savedDespite(const Failure& failure) {
    const bool reads = std::ranges::find(kReadsLists, failure.function) != std::end(kReadsLists);
    return reads ? Saved::kMayLackParts : Saved::kWhole;
  }

  static std::string textOf(const Failure& failure, std::size_t call) {
    return "call " + std::to_string(call) + " of " + failure.function + " returns " +
           std::to_string(failure.result) + ", errno " + std::to_string(failure.error);
  }
};

// Other compilers put other functions inline, and the counters of coverage call their own.
#ifndef __clang__
TEST_F(PluginCalls, NoFunctionIsForgotten) {
  const std::set<std::string> called = functionsCalledBy(plugin);
  std::set<std::string> known(std::begin(kCannotFail), std::end(kCannotFail));
  for (const auto& failures : {failuresOfLibc(), failuresOfPlatform()}) {
    for (const Failure& failure : failures) {
      known.insert(failure.function);
    }
  }
  EXPECT_THAT(called, IsSubsetOf(known));
  EXPECT_THAT(known, IsSubsetOf(called));
}
#endif

// A function that is added to the version script needs a step in plugin_launch.cc.
TEST(PluginLaunch, CallsEveryExportedFunction) {
  const std::string script = torture::readFile(QUILLON_VERSION_SCRIPT).value();
  const std::regex name("\n +(\\w+);");
  std::set<std::string> exported;
  for (std::sregex_iterator match(script.begin(), script.end(), name), end; match != end; ++match) {
    exported.insert((*match)[1]);
  }
  EXPECT_EQ(exported.erase("checkOnTerminate"), 1U);  // a variable
  EXPECT_EQ(exported, functionsOfLaunch());
}

TEST_F(PluginCalls, EachCallOfTheCLibraryMayFail) {
  failEachCall(failuresOfLibc(), scenarios());
  printFigure("plug-in, each call of the C library fails");
}

TEST_F(PluginCalls, EachCallOfThePlatformMayFail) {
  failEachCall(failuresOfPlatform(), scenarios());
  printFigure("plug-in, each call of the platform returns each error");
}

TEST_F(PluginCalls, EachCallOfAnotherThreadMayFail) {
  failEachCall(failuresOfLibc(), {inThreads(kEnoughChanges)}, Threads::kOthers);
  failEachCall(failuresOfPlatform(), {inThreads(kEnoughChanges)}, Threads::kOthers);
  printFigure("plug-in, each call fails in the threads beside the launcher's");
}

class PluginMemory : public PluginFaults {
 protected:
  void failEachAllocation(Shortage shortage, const std::vector<Scenario>& scenarios,
                          Threads threads = Threads::kCalling) {
    std::size_t number = 0;
    for (const Scenario& scenario : scenarios) {
      const Result right = launchWith(scenario, [&] { failAllocation(0, shortage, threads); });
      const std::size_t last = allocationsMade();
      ASSERT_GT(last, 0U) << scenario.name;
      for (std::size_t allocation = 1; allocation <= last; ++allocation) {
        if (++number % sampleStep(threads) == 0) {
          judge(scenario, "allocation " + std::to_string(allocation), right, Saved::kMayLackParts,
                [&] { failAllocation(allocation, shortage, threads); });
        }
      }
    }
  }
};

TEST_F(PluginMemory, OneAllocationMayFail) {
  failEachAllocation(Shortage::kOnce, scenarios());
  printFigure("plug-in, each allocation fails once");
}

TEST_F(PluginMemory, MemoryMayRunOut) {
  failEachAllocation(Shortage::kFromThenOn, scenarios());
  printFigure("plug-in, memory runs out at each allocation");
}

// The exported functions that need memory, and what they return without it.
constexpr std::pair<std::string_view, std::string_view> kAllocate[] = {
    {"plugin_initialize", ""},
    {"plugin_get_tpa", "null"},
    {"plugin_get_dll_path", "empty"},
    {"plugin_get_extra_dll_path", "empty"},
    {"plugin_get_native_dll_searching_path", "empty"},
    {"plugin_set_coreclr_info", ""},
    {"plugin_preload", ""},
    {"plugin_set_app_info", ""},
    {"plugin_has_log_control", "1"},
    {"plugin_before_execute", ""},
    {"is_coba_direct_call_mode", "0"},
    {"check_signature", "0"},
    {"create_pipe_server", ""},
    {"create_pipe_client", ""},
    {"plugin_validate_dll", "0"},
    {"enable_exception_monitor", ""},
    {"print_all_backtrace", "0"},
    {"string_format_test", "null"},
    {"plugin_finalize", ""}};

TEST_F(PluginMemory, AFunctionWithoutMemorySaysSo) {
  for (const auto& [function, answer] : kAllocate) {
    const Descriptor log(memfd_create("log", MFD_CLOEXEC));
    const Result result = launchWith(
        kInHouse,
        [&] {
          workstation::useLog({"file", DLOG_ERROR, false, dup(log.get())});
        },
        [&, failing = function](std::string_view next) {
          failAllocation(next == failing ? 1 : 0, Shortage::kOnce);
        });
    const std::string text =
        torture::readFile("/proc/self/fd/" + std::to_string(log.get())).value();
    EXPECT_THAT(text, ContainsRegex(std::string(function) + "\\([0-9]+\\) > [^ ]*Out of memory"));
    EXPECT_EQ(result.answers.at(std::string(function)), answer) << function;
    const bool isRefused = result.end == Result::End::kRefused;
    EXPECT_EQ(isRefused, mayRefuse(std::string(function))) << function;
  }
}

// The trace span of the call needs memory. The mode does not.
TEST_F(PluginMemory, DirectCallModeIsKnownWithoutMemory) {
  constexpr char kFunction[] = "is_coba_direct_call_mode";
  const auto setAppInfo =
      reinterpret_cast<decltype(&plugin_set_app_info)>(dlsym(plugin, "plugin_set_app_info"));
  const Result result = launchWith(
      kInHouse, [&] { setAppInfo("com.korvane.tv.csfs", ""); },
      [&](std::string_view next) { failAllocation(next == kFunction ? 1 : 0, Shortage::kOnce); });
  EXPECT_EQ(result.answers.at(kFunction), "1");
}

TEST_F(PluginMemory, AllocationsOfAnotherThreadMayFail) {
  failEachAllocation(Shortage::kOnce, {inThreads(kEnoughChanges)}, Threads::kOthers);
  failEachAllocation(Shortage::kFromThenOn, {inThreads(kSomeChanges)}, Threads::kOthers);
  printFigure("plug-in, allocations fail in the threads beside the launcher's");
}

}  // namespace
}  // namespace quillon::faults
