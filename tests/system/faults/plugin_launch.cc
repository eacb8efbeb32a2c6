#include "tests/system/faults/plugin_launch.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <ios>
#include <new>
#include <stdexcept>
#include <thread>
#include <type_traits>

#include "device_names.h"
#include "platform/dlog.h"
#include "quillon_tv_plugin.h"
#include "tests/support/shared_memory.h"
#include "workstation/config_store.h"
#include "workstation/log_config.h"
#include "workstation/packages.h"

namespace quillon::faults {
namespace {

constexpr int kAllReturned = 42;
constexpr unsigned kSeconds = 20;
constexpr std::size_t kMaxText = std::size_t{1} << 16;

// Written by the child without system calls and without memory of its own.
struct Report {
  std::size_t step;
  std::array<char, 64> thrown;  // for each step: 'b' for bad_alloc, 'f' for a stream's failure
  std::array<std::array<char, 12>, 64> answers;  // for each step, as in Result
  bool isAccepted;
  bool isLibraryAccepted;
  bool hasNoticed;
  std::array<char, kMaxText> assemblies;
  std::array<char, kMaxText> folders;
};

Report& report() {
  static Report& shared = test::makeSharedMemory<Report>();
  return shared;
}

void* plugin = nullptr;

template <typename Function>
Function* exported(const char* name) {
  return reinterpret_cast<Function*>(dlsym(plugin, name));
}

void keep(std::array<char, kMaxText>& target, const char* text) {
  std::strncpy(target.data(), text == nullptr ? "" : text, kMaxText - 1);
}

void note(int answer) {
  auto& target = report().answers.at(report().step);
  std::snprintf(target.data(), target.size(), "%d", answer);
}

void note(const char* text) {
  const char* const kind = text == nullptr ? "null" : *text == '\0' ? "empty" : "text";
  std::strcpy(report().answers.at(report().step).data(), kind);
}

template <typename Call>
void noteAnswerOf(const Call& call) {
  if constexpr (std::is_void_v<decltype(call())>) {
    call();
  } else {
    note(call());
  }
}

std::atomic<bool> isZoneCacheCleared{false};

// The managed methods: one clears the cache of time zones, the others do nothing.
int createDelegate(void*, unsigned int, const char*, const char*, const char* method,
                   void** delegate) {
  void (*const clear)() = [] { isZoneCacheCleared = true; };
  void (*const nothing)() = [] {};
  const bool clears = std::strcmp(method, "ClearCachedData") == 0;
  *delegate = reinterpret_cast<void*>(clears ? clear : nothing);
  return 0;
}

const Scenario* current = nullptr;

std::string executableOf(const std::string& application) {
  return "/opt/usr/apps/" + application + "/bin/A.dll";
}

// The arguments, which are made before memory runs out.
std::string executable;
char* infoText = nullptr;
char* debugText = nullptr;

#define CALL(name) functions().name

struct Functions {
#define QUILLON_FUNCTION(name) decltype(&::name) name = exported<decltype(::name)>(#name)
  QUILLON_FUNCTION(plugin_initialize);
  QUILLON_FUNCTION(plugin_get_tpa);
  QUILLON_FUNCTION(plugin_get_dll_path);
  QUILLON_FUNCTION(plugin_get_extra_dll_path);
  QUILLON_FUNCTION(plugin_get_native_dll_searching_path);
  QUILLON_FUNCTION(plugin_set_coreclr_info);
  QUILLON_FUNCTION(plugin_preload);
  QUILLON_FUNCTION(plugin_set_app_info);
  QUILLON_FUNCTION(plugin_has_log_control);
  QUILLON_FUNCTION(plugin_before_execute);
  QUILLON_FUNCTION(plugin_finalize);
  QUILLON_FUNCTION(plugin_validate_dll);
  QUILLON_FUNCTION(create_pipe_server);
  QUILLON_FUNCTION(create_pipe_client);
  QUILLON_FUNCTION(is_coba_direct_call_mode);
  QUILLON_FUNCTION(check_signature);
  QUILLON_FUNCTION(enable_exception_monitor);
  QUILLON_FUNCTION(print_all_backtrace);
  QUILLON_FUNCTION(print_backtrace);
  QUILLON_FUNCTION(print_log_info);
  QUILLON_FUNCTION(print_log_debug);
  QUILLON_FUNCTION(string_format_test);
  QUILLON_FUNCTION(lldb_sos_disable_smdl);
  QUILLON_FUNCTION(lldb_sos_enable_smdl);
  QUILLON_FUNCTION(lldb_sos_dump_manage_only_threads);
  QUILLON_FUNCTION(lldb_sos_dump_manage_threads);
  QUILLON_FUNCTION(lldb_sos_dump_manage_threads_with_args);
  QUILLON_FUNCTION(lldb_sos_dump_manage_threads_by_tid);
  QUILLON_FUNCTION(lldb_sos_set_timeout_time);
  QUILLON_FUNCTION(lldb_sos_get_managed_thread_list);
  QUILLON_FUNCTION(lldb_sos_get_thread_list);
#undef QUILLON_FUNCTION
};

const Functions& functions() {
  static const Functions all;
  return all;
}

// Returns true if the reader of a stream has taken everything, or has ended.
bool hasTakenAll(int stream) {
  int unread = 0;
  pollfd end{stream, POLLOUT, 0};
  return ioctl(stream, FIONREAD, &unread) != 0 || unread == 0 ||
         (poll(&end, 1, 0) == 1 && (end.revents & POLLERR) != 0);
}

// When a reader takes the second line, it has completely handled the first one.
void printTwice() {
  std::signal(SIGPIPE, SIG_IGN);  // as the runtime does
  for (const char* const line : {"one\n", "two\n"}) {
    for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) {
      [[maybe_unused]] const auto written = write(stream, line, std::strlen(line));
    }
    while (!hasTakenAll(STDOUT_FILENO) || !hasTakenAll(STDERR_FILENO)) {
      std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
  }
}

// Sets a key that the plug-in watches, until it has noticed.
void changeConfiguration() {
  constexpr char kKey[] = "db/menu/glade_port/homedatacontrol/defaultdisclaimeragree";
  for (int tries = 0; tries < current->changes && !isZoneCacheCleared; ++tries) {
    [[maybe_unused]] const auto set = workstation::setConfig(kKey, 1);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  report().hasNoticed = isZoneCacheCleared;
}

enum class Server { kNone, kRuns, kHasEnded };
std::atomic<Server> server{Server::kNone};

// Sends one request to a server in this process. A second thread does it, which exists before
// memory runs out. A server that fails may have closed the pipe again.
void sendRequest() {
  sigset_t brokenPipe;
  sigemptyset(&brokenPipe);
  sigaddset(&brokenPipe, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &brokenPipe, nullptr);
  while (server == Server::kNone) {
    std::this_thread::sleep_for(std::chrono::microseconds(100));
  }
  int pipe = -1;
  while (server == Server::kRuns && pipe < 0) {
    std::this_thread::sleep_for(std::chrono::microseconds(100));
    pipe = open(QUILLON_DLL_REQUEST_PIPE, O_WRONLY | O_NONBLOCK | O_CLOEXEC);
  }
  [[maybe_unused]] const auto written = write(pipe, "request\n", std::strlen("request\n"));
}

struct LastRequest {};

// The server waits for further requests until its callback does not return.
void serveOneRequest() {
  server = Server::kRuns;
  try {
    CALL(create_pipe_server)([](const char*, void*) { throw LastRequest(); });
  } catch (const LastRequest&) {
  }
  server = Server::kHasEnded;
}

// Keeps the pipe open, so that the answer stays there, and answers again, in case that the plug-in
// could not.
void answerRequest() {
  const int pipe = open(QUILLON_DLL_ANSWER_PIPE, O_RDWR | O_NONBLOCK | O_CLOEXEC);
  CALL(create_pipe_client)(device_names::kValidationRefusal);
  [[maybe_unused]] const auto written =
      write(pipe, device_names::kValidationRefusal, std::strlen(device_names::kValidationRefusal));
}

void noteList(const char* list, std::array<char, kMaxText>& target) {
  note(list);
  keep(target, list);
}

struct Step {
  const char* name;  // of the exported function that it calls; with a blank if it calls none
  void (*call)();
};

#define STEP(function, ...)                                                     \
  {                                                                             \
    #function, [] { noteAnswerOf([] { return CALL(function)(__VA_ARGS__); }); } \
  }

constexpr Step kSteps[] = {
    STEP(plugin_initialize, current->type.c_str()),
    {"plugin_get_tpa", [] { noteList(CALL(plugin_get_tpa)(), report().assemblies); }},
    {"plugin_get_dll_path", [] { noteList(CALL(plugin_get_dll_path)(), report().folders); }},
    STEP(plugin_get_extra_dll_path),
    STEP(plugin_get_native_dll_searching_path),
    STEP(plugin_set_coreclr_info, plugin, 1, createDelegate),
    STEP(plugin_preload),
    {"plugin_set_app_info",
     [] {
       CALL(plugin_set_app_info)(current->application.c_str(), executable.c_str());
       report().isAccepted = true;
     }},
    STEP(plugin_has_log_control),
    {"captured output",
     [] {
       if (current->prints) {
         printTwice();
       }
     }},
    {"changed configuration", changeConfiguration},
    STEP(plugin_before_execute),
    STEP(is_coba_direct_call_mode),
    STEP(check_signature, "/opt/usr/apps/allowed"),
    {"create_pipe_server", serveOneRequest},
    {"create_pipe_client", answerRequest},
    {"plugin_validate_dll",
     [] {
       const int accepted = CALL(plugin_validate_dll)(1, executable.c_str());
       note(accepted);
       report().isLibraryAccepted = accepted == 1;
     }},
    STEP(enable_exception_monitor, 1, 1),
    STEP(print_all_backtrace),
    STEP(print_backtrace, getpid()),
    STEP(print_log_info, infoText),
    STEP(print_log_debug, debugText),
    {"string_format_test",
     [] {
       const char* argument = "text";
       const char* const text = CALL(string_format_test)("{0} and more", &argument, 100);
       note(text);
       delete[] text;
     }},
    STEP(lldb_sos_disable_smdl),
    STEP(lldb_sos_enable_smdl),
    STEP(lldb_sos_dump_manage_only_threads),
    STEP(lldb_sos_dump_manage_threads),
    STEP(lldb_sos_dump_manage_threads_with_args),
    STEP(lldb_sos_dump_manage_threads_by_tid),
    STEP(lldb_sos_set_timeout_time),
    STEP(lldb_sos_get_managed_thread_list),
    STEP(lldb_sos_get_thread_list),
    STEP(plugin_finalize),
};

void takeSteps(const BeforeCall& beforeEach) {
  for (const Step& step : kSteps) {
    beforeEach(step.name);
    char& thrown = report().thrown.at(report().step);
    try {
      step.call();
    } catch (const std::bad_alloc&) {
      thrown = 'b';
    } catch (const std::ios_base::failure&) {
      thrown = 'f';
    } catch (...) {
      thrown = 'x';
    }
    ++report().step;
  }
}

[[noreturn]] void runChild(const Scenario& scenario, const std::function<void()>& before,
                           const BeforeCall& beforeEach) {
  alarm(kSeconds);
  current = &scenario;
  executable = executableOf(scenario.application);
  infoText = strdup("text");
  debugText = strdup("text");
  if (!workstation::registerProcess(getpid(), scenario.application)) {
    _exit(1);
  }
  functions();
  std::thread(sendRequest).detach();
  before();
  takeSteps(beforeEach);
  _exit(kAllReturned);
}

std::string describe(int status) {
  if (WIFSIGNALED(status)) {
    return WTERMSIG(status) == SIGALRM ? kHangs : "signal " + std::to_string(WTERMSIG(status));
  }
  return "status " + std::to_string(WEXITSTATUS(status));
}

}  // namespace

void* loadPlugin() {
  // Every record is formatted and written.
  workstation::useLog({"json", DLOG_DEBUG, true, open("/dev/null", O_WRONLY | O_CLOEXEC)});
  plugin = dlopen(QUILLON_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
  if (plugin == nullptr) {
    throw std::runtime_error(dlerror());
  }
  return plugin;
}

std::set<std::string> functionsOfLaunch() {
  std::set<std::string> names;
  for (const Step& step : kSteps) {
    if (std::strchr(step.name, ' ') == nullptr) {
      names.insert(step.name);
    }
  }
  return names;
}

Result launch(const Scenario& scenario, const std::function<void()>& before,
              const BeforeCall& beforeEach) {
  report() = {};
  unlink(QUILLON_DLL_REQUEST_PIPE);
  unlink(QUILLON_DLL_ANSWER_PIPE);
  const pid_t child = fork();
  if (child == 0) {
    runChild(scenario, before, beforeEach);
  }
  int status = 0;
  waitpid(child, &status, 0);
  Result result;
  result.how = describe(status);
  if (WIFEXITED(status) && WEXITSTATUS(status) == kAllReturned) {
    result.end = Result::End::kReturned;
  } else if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
    result.end = Result::End::kRefused;
  }
  const std::size_t last = std::min(report().step, std::size(kSteps) - 1);
  result.function = kSteps[last].name;
  for (std::size_t step = 0; step < std::size(kSteps); ++step) {
    if (const char kind = report().thrown.at(step); kind != '\0') {
      result.thrown.push_back(std::string(kSteps[step].name) + " " + kind);
    }
    result.answers[kSteps[step].name] = report().answers.at(step).data();
  }
  result.assemblies = report().assemblies.data();
  result.folders = report().folders.data();
  result.isAccepted = report().isAccepted;
  result.isLibraryAccepted = report().isLibraryAccepted;
  result.hasNoticed = report().hasNoticed;
  return result;
}

}  // namespace quillon::faults

// The plug-in pauses between its attempts to reach the launch-boost daemon. Nothing depends on the
// length of these pauses.
extern "C" int usleep(useconds_t) { return 0; }
