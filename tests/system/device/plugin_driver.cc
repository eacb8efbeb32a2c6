// A scripted launcher: plugin-driver PLUGIN STEP...
//
// Loads the plug-in and runs the steps in order. A step is the name of an exported function without
// "plugin_", or the name of an inspection, with its argument after a "=". Each step prints one JSON
// line: {"step":"get_tpa","result":"..."}. If a step throws, the line has "threw" instead of
// "result". The step "register" prints nothing. Exits with status 0 after the last step, unless the
// plug-in ends the process before.
#include <dlfcn.h>
#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <openssl/err.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <ios>
#include <map>
#include <sstream>
#include <string>
#include <thread>

#include "quillon_tv_plugin.h"
#include "workstation/process_registration.h"

namespace {

using nlohmann::json;

void* plugin = nullptr;

// The standard output of the start, which the plug-in may redirect.
FILE* results = nullptr;

template <typename Function>
Function* exported(const char* name) {
  void* symbol = dlsym(plugin, name);
  if (symbol == nullptr) {
    std::fprintf(stderr, "plugin-driver: %s\n", dlerror());
    std::exit(3);
  }
  return reinterpret_cast<Function*>(symbol);
}

#define CALL(name) exported<decltype(name)>(#name)

// A fake runtime that records the requests of the plug-in.
int delegateStatus = 0;
int managedCalls = 0;
json delegateCall;

int createDelegate(void* host, unsigned int domain, const char* assembly, const char* type,
                   const char* method, void** delegate) {
  delegateCall = {{"host", host == &delegateStatus},
                  {"domain", domain},
                  {"assembly", assembly},
                  {"type", type},
                  {"method", method}};
  *delegate = reinterpret_cast<void*>(+[] { ++managedCalls; });
  return delegateStatus;
}

json textOrNull(const char* text) { return text == nullptr ? json() : json(text); }

json setAppInfo(const std::string& argument) {
  const std::size_t comma = argument.find(',');
  CALL(plugin_set_app_info)
  (argument.substr(0, comma).c_str(), argument.substr(comma + 1).c_str());
  return {};
}

json setCoreclrInfo(const std::string& status) {
  delegateStatus = status.empty() ? 0 : std::stoi(status);
  CALL(plugin_set_coreclr_info)(&delegateStatus, 7, createDelegate);
  return {};
}

json preload(const std::string&) {
  CALL(plugin_preload)();
  return {{"delegate", delegateCall}, {"calls", managedCalls}};
}

json finalize(const std::string&) {
  const bool before = *exported<bool>("checkOnTerminate");
  CALL(plugin_finalize)();
  return {{"before", before}, {"after", *exported<bool>("checkOnTerminate")}};
}

// Returns the target and the close-on-exec flag of each open descriptor.
json descriptors(const std::string&) {
  json result = json::object();
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    const std::string number = entry.path().filename();
    const int flags = fcntl(std::stoi(number), F_GETFD);
    result[number] = {{"target", std::filesystem::read_symlink(entry.path(), gone).string()},
                      {"cloexec", (flags & FD_CLOEXEC) != 0}};
  }
  return result;
}

json processName(const std::string&) {
  std::array<char, 16> name{};
  prctl(PR_GET_NAME, name.data());
  return name.data();
}

// Returns a field of /proc/self/status.
json status(const std::string& field) {
  std::ifstream file("/proc/self/status");
  for (std::string line; std::getline(file, line);) {
    if (line.rfind(field + ":\t", 0) == 0) {
      return line.substr(field.size() + 2);
    }
  }
  return {};
}

// Whether a file of that name is mapped.
json mapped(const std::string& name) {
  std::ifstream maps("/proc/self/maps");
  std::stringstream text;
  text << maps.rdbuf();
  return text.str().find("/" + name) != std::string::npos;
}

// Returns the content of a file, which may be a path below /proc/self/fd; null if it is missing.
json readFile(const std::string& path) {
  std::ifstream file(path);
  if (!file) {
    return {};
  }
  std::stringstream text;
  text << file.rdbuf();
  return text.str();
}

// No descriptor can be opened during the lifetime of this object.
class NoMoreDescriptors {
 public:
  NoMoreDescriptors() {
    getrlimit(RLIMIT_NOFILE, &before_);
    const int next = dup(STDOUT_FILENO);
    close(next);
    const rlimit none{static_cast<rlim_t>(next), before_.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
  }
  ~NoMoreDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }
  NoMoreDescriptors(const NoMoreDescriptors&) = delete;
  NoMoreDescriptors& operator=(const NoMoreDescriptors&) = delete;

 private:
  rlimit before_{};
};

json extraDllPathWithoutDescriptors(const std::string&) {
  const NoMoreDescriptors limit;
  return textOrNull(CALL(plugin_get_extra_dll_path)());
}

json hasLogControl(const std::string&) { return CALL(plugin_has_log_control)(); }

json hasLogControlWithoutDescriptors(const std::string& argument) {
  const NoMoreDescriptors limit;
  return hasLogControl(argument);
}

// Writes a line with one write(2).
json print(int descriptor, const std::string& text) {
  const std::string line = text + "\n";
  return write(descriptor, line.data(), line.size());
}

// The log file of the start, even if something is mounted over its path later.
int logFile = -1;

// Uses system calls only, since the checks of a sanitizer for streams need descriptors.
std::string logContent() {
  std::string content;
  std::array<char, 4096> block{};
  for (ssize_t count; (count = pread(logFile, block.data(), block.size(),
                                     static_cast<off_t>(content.size()))) > 0;) {
    content.append(block.data(), static_cast<std::size_t>(count));
  }
  return content;
}

// Waits until the log contains a text. Returns false after a timeout.
json logged(const std::string& text) {
  constexpr std::chrono::seconds limit{20};
  for (const auto end = std::chrono::steady_clock::now() + limit;
       std::chrono::steady_clock::now() < end;) {
    if (logContent().find(text) != std::string::npos) {
      return true;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return false;
}

json printErrorWithoutDescriptors(const std::string& text) {
  const NoMoreDescriptors limit;
  print(STDERR_FILENO, text);
  return logged(text);
}

// Limits the address space to little more than its current size.
json limitMemory(const std::string&) {
  std::ifstream file("/proc/self/statm");
  rlim_t pages = 0;
  file >> pages;
  constexpr rlim_t kMore = 32 << 20;
  const rlim_t size = pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) + kMore;
  const rlimit limit{size, size};
  return setrlimit(RLIMIT_AS, &limit);
}

// Simulates a full disk for new files in /tmp with a small, full file system. Returns false if it
// cannot be mounted.
json fillTmp(const std::string&) {
  if (mount("tmpfs", "/tmp", "tmpfs", 0, "size=4k") != 0) {
    return false;
  }
  std::ofstream file("/tmp/filler");
  file << std::string(4096, 'x') << std::flush;
  file << 'x' << std::flush;
  return !file;
}

// Makes thread creation with default attributes fail, by a default stack size that is too large.
json forbidThreads(const std::string&) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, SIZE_MAX / 4 * 3);
  const int result = pthread_setattr_default_np(&attributes);
  pthread_attr_destroy(&attributes);
  return result;
}

json threads(const std::string&) {
  json names = json::array();
  for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
    std::ifstream file(thread.path() / "comm");
    std::string name;
    std::getline(file, name);
    names.push_back(name);
  }
  return names;
}

json load(const std::string& library) { return dlopen(library.c_str(), RTLD_NOW) != nullptr; }

json loadGlobally(const std::string& library) {
  return dlopen(library.c_str(), RTLD_NOW | RTLD_GLOBAL) != nullptr;
}

// Looks up a function of the libcrypto that the plug-in uses.
template <typename Function>
Function* ofCrypto(const char* name) {
  const std::string file = "libcrypto.so." + std::to_string(OPENSSL_SHLIB_VERSION);
  void* const library = dlopen(file.c_str(), RTLD_NOW);
  return reinterpret_cast<Function*>(dlsym(library, name));
}

// Adds an error with that reason to libcrypto's queue, or returns the reasons in it.
json queueCryptoError(const std::string& reason) {
  ofCrypto<decltype(ERR_new)>("ERR_new")();
  ofCrypto<decltype(ERR_set_error)>("ERR_set_error")(ERR_LIB_USER, std::stoi(reason), nullptr);
  return {};
}
json cryptoErrors(const std::string&) {
  json reasons = json::array();
  const auto next = ofCrypto<decltype(ERR_get_error)>("ERR_get_error");
  for (unsigned long code; (code = next()) != 0;) {
    reasons.push_back(ERR_GET_REASON(code));
  }
  return reasons;
}

json setVariable(const std::string& text) {
  const std::size_t equals = text.find('=');
  return setenv(text.substr(0, equals).c_str(), text.substr(equals + 1).c_str(), 1);
}

// Locks the validator's request pipe until the process ends, as launches do while they ask.
json takeTurn(const std::string&) {
  const int pipe = open(QUILLON_DLL_REQUEST_PIPE, O_WRONLY | O_NONBLOCK | O_CLOEXEC);
  return flock(pipe, LOCK_EX) == 0;
}

// Makes this process one of a package. Not before exec(2), after which an emulator reports another
// start time of the process.
void registerProcess(const std::string& package) {
  if (quillon_register_process(getpid(), package.c_str()) != 0) {
    std::exit(3);
  }
}

using Step = std::function<json(const std::string&)>;

// The plug-in may end the process during a step. No output is lost, since each line is flushed.
const std::map<std::string, Step>& steps() {
  static const std::map<std::string, Step> all = {
      {"initialize",
       [](const auto& type) { return CALL(plugin_initialize)(type.c_str()), json(); }},
      {"get_tpa", [](const auto&) { return textOrNull(CALL(plugin_get_tpa)()); }},
      {"get_dll_path", [](const auto&) { return textOrNull(CALL(plugin_get_dll_path)()); }},
      {"get_extra_dll_path",
       [](const auto&) { return textOrNull(CALL(plugin_get_extra_dll_path)()); }},
      {"get_native_dll_searching_path",
       [](const auto&) { return textOrNull(CALL(plugin_get_native_dll_searching_path)()); }},
      {"set_coreclr_info", setCoreclrInfo},
      {"preload", preload},
      {"set_app_info", setAppInfo},
      {"has_log_control", hasLogControl},
      {"starved_has_log_control", hasLogControlWithoutDescriptors},
      {"print", [](const auto& text) { return print(STDOUT_FILENO, text); }},
      {"print_error", [](const auto& text) { return print(STDERR_FILENO, text); }},
      {"starved_print_error", printErrorWithoutDescriptors},
      {"logged", logged},
      {"fill_tmp", fillTmp},
      {"forbid_threads", forbidThreads},
      {"threads", threads},
      {"before_execute", [](const auto&) { return CALL(plugin_before_execute)(), json(); }},
      {"finalize", finalize},
      {"validate_dll",
       [](const auto& path) { return json(CALL(plugin_validate_dll)(1, path.c_str())); }},
      {"take_turn", takeTurn},
      {"limit_memory", limitMemory},
      {"load", load},
      {"load_globally", loadGlobally},
      {"crypto_error", queueCryptoError},
      {"crypto_errors", cryptoErrors},
      {"set", setVariable},
      {"direct_call_mode", [](const auto&) { return json(CALL(is_coba_direct_call_mode)()); }},
      {"check_signature",
       [](const auto& mount) { return json(CALL(check_signature)(mount.c_str())); }},
      {"check_no_signature", [](const auto&) { return json(CALL(check_signature)(nullptr)); }},
      {"descriptors", descriptors},
      {"starved_get_extra_dll_path", extraDllPathWithoutDescriptors},
      {"close_standard_input", [](const auto&) { return json(close(STDIN_FILENO)); }},
      {"process_name", processName},
      {"status", status},
      {"mapped", mapped},
      {"read", readFile},
      {"environment", [](const auto& name) { return textOrNull(std::getenv(name.c_str())); }},
  };
  return all;
}

void take(const std::string& text) {
  const std::size_t equals = text.find('=');
  const std::string name = text.substr(0, equals);
  if (name == "register") {
    return registerProcess(text.substr(equals + 1));
  }
  const auto step = steps().find(name);
  if (step == steps().end()) {
    std::fprintf(stderr, "plugin-driver: no step '%s'\n", name.c_str());
    std::exit(3);
  }
  json line = {{"step", name}};
  try {
    line["result"] = step->second(equals == std::string::npos ? "" : text.substr(equals + 1));
  } catch (const std::ios_base::failure& failure) {
    line["threw"] = failure.what();
  }
  std::fprintf(results, "%s\n", line.dump().c_str());
  std::fflush(results);
}

}  // namespace

// Called by the leak checker of a sanitized build. The plug-in keeps these until the process ends:
// package handles, and a chain that another plugin_initialize replaced.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
  return "leak:package_info_create\nleak:plugin_initialize\n";
}

int main(int count, char** arguments) {
  results = fdopen(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1), "w");
  const char* const log = std::getenv("QUILLON_LOG");
  const char* const colon = log == nullptr ? nullptr : std::strchr(log, ':');
  logFile = colon == nullptr ? -1 : open(colon + 1, O_RDONLY | O_CLOEXEC);
  plugin = count > 1 ? dlopen(arguments[1], RTLD_NOW) : nullptr;
  if (plugin == nullptr) {
    std::fprintf(stderr, "plugin-driver: %s\n", count > 1 ? dlerror() : "no plug-in given");
    return 3;
  }
  for (int i = 2; i < count; ++i) {
    take(arguments[i]);
  }
  return 0;
}
