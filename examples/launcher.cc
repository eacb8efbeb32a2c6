// A complete launcher: runs one installed application of a device in its own process.
//
//   launcher-cxx PLUGIN TYPE APPLICATION [ARGUMENT...]
//
// PLUGIN is the path of libquillon-tv-plugin.so, TYPE is "inhouse", "inhouseapitest", "normal" or
// "dotnet". Exits as the application does, with 1 if the launch failed, and with 0 if the plug-in
// refused the application.
//
// This program loads the plug-in with dlopen(3). launcher.c is linked with it.
#include <dlfcn.h>
#include <strings.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/app_info.h"
#include "platform/pkgmgr_info.h"
#include "quillon_tv_plugin.h"
#include "workstation/process_registration.h"  // a device registers processes by itself

namespace {

namespace fs = std::filesystem;

const fs::path kFramework = "/usr/share/dotnet.velora/netcoreapp";

// The plug-in replaces descriptor 2, so the launcher keeps a duplicate for its own messages.
const int terminal = dup(STDERR_FILENO);

bool inPlugin = false;

// The plug-in refuses an application by calling exit(0).
void explainRefusal() {
  if (inPlugin) {
    dprintf(terminal, "launcher: the plug-in refused the application; the log says why\n");
  }
}

class Library {
 public:
  explicit Library(const fs::path& file) : handle_(dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL)) {
    if (handle_ == nullptr) {
      throw std::runtime_error(dlerror());
    }
  }

  // The library is never unloaded.
  template <typename Function>
  Function* find(const char* name) const {
    void* const symbol = dlsym(handle_, name);
    if (symbol == nullptr) {
      throw std::runtime_error(dlerror());
    }
    return reinterpret_cast<Function*>(symbol);
  }

 private:
  void* handle_;
};

// Calls a function of the plug-in's header by its name.
#define CALL(plugin, name) (plugin).find<decltype(name)>(#name)

struct Application {
  std::string id;
  std::string package;
  fs::path assembly;
};

Application findApplication(const std::string& id) {
  Application application{id, {}, {}};
  pkgmgrinfo_appinfo_h record = nullptr;
  app_info_h info = nullptr;
  if (pkgmgrinfo_appinfo_get_appinfo(id.c_str(), &record) != 0 ||
      app_info_create(id.c_str(), &info) != 0) {
    throw std::runtime_error("no application '" + id + "' is installed");
  }
  char* path = nullptr;  // belongs to the record
  if (pkgmgrinfo_appinfo_get_exec(record, &path) == 0) {
    application.assembly = path;
  }
  char* package = nullptr;  // belongs to us
  if (app_info_get_package(info, &package) == 0) {
    application.package = package;
    std::free(package);
  }
  app_info_destroy(info);
  pkgmgrinfo_appinfo_destroy_appinfo(record);
  return application;
}

// A ":"-separated list of the plug-in. It may begin or end with ":"; the runtime refuses a list
// with an empty entry.
std::vector<std::string> split(const std::string& list) {
  std::vector<std::string> entries;
  std::istringstream text(list);
  for (std::string entry; std::getline(text, entry, ':');) {
    if (!entry.empty()) {
      entries.push_back(entry);
    }
  }
  return entries;
}

std::string join(const std::vector<std::string>& entries) {
  std::string list;
  for (const std::string& entry : entries) {
    list += (list.empty() ? "" : ":") + entry;
  }
  return list;
}

struct IgnoringCase {
  bool operator()(const std::string& left, const std::string& right) const {
    return strcasecmp(left.c_str(), right.c_str()) < 0;
  }
};

// The runtime takes assemblies only, and one path for each name. With the type "inhouseapitest" the
// plug-in's list can contain a name twice; the first path is meant.
std::string trustedAssemblies(std::vector<std::string> paths) {
  std::set<std::string, IgnoringCase> names;
  std::erase_if(paths, [&](const fs::path& path) {
    const bool isAssembly = strcasecmp(path.extension().c_str(), ".dll") == 0 ||
                            strcasecmp(path.extension().c_str(), ".exe") == 0;
    return !isAssembly || !names.insert(path.stem()).second;
  });
  return join(paths);
}

// For the type "dotnet", with which the plug-in returns no list.
std::vector<std::string> frameworkFiles() {
  std::vector<std::string> files;
  for (const auto& entry : fs::directory_iterator(kFramework)) {
    files.push_back(entry.path());
  }
  return files;
}

// The runtime, with the hosting interface of coreclrhost.h of the .NET runtime.
class Runtime {
 public:
  // Calls the four list functions of the plug-in and starts the runtime with their results.
  Runtime(const Library& plugin, const Application& application) {
    const char* const tpa = CALL(plugin, plugin_get_tpa)();
    const std::string folder = application.assembly.parent_path();
    const std::string dllPath = CALL(plugin, plugin_get_dll_path)();
    const std::string nativePath = CALL(plugin, plugin_get_native_dll_searching_path)();
    const std::string extraPath = CALL(plugin, plugin_get_extra_dll_path)();
    start({{"TRUSTED_PLATFORM_ASSEMBLIES",
            trustedAssemblies(tpa != nullptr ? split(tpa) : frameworkFiles())},
           {"APP_PATHS", join(split(folder + ":" + dllPath + ":" + extraPath))},
           {"NATIVE_DLL_SEARCH_DIRECTORIES",
            join(split(nativePath + ":" + folder + ":" + kFramework.string()))},
           {"PLATFORM_RESOURCE_ROOTS",
            join(split(kFramework.string() + ":" + dllPath + ":" + extraPath))},
           {"APP_CONTEXT_BASE_DIRECTORY", folder + "/"}});
    CALL(plugin, plugin_set_coreclr_info)
    (host_, domain_, library_.find<CreateDelegate>("coreclr_create_delegate"));
  }

  // Runs an assembly until its Main has returned.
  void run(const fs::path& assembly, const std::vector<const char*>& arguments) {
    unsigned status = 0;
    const auto execute =
        library_.find<int(void*, unsigned, int, const char* const*, const char*, unsigned*)>(
            "coreclr_execute_assembly");
    check("run " + assembly.string(), execute(host_, domain_, static_cast<int>(arguments.size()),
                                              arguments.data(), assembly.c_str(), &status));
  }

  // Ends the runtime. Returns the exit status of the application.
  int shutDown() {
    int latched = 0;
    library_.find<int(void*, unsigned, int*)>("coreclr_shutdown_2")(host_, domain_, &latched);
    return latched;
  }

 private:
  using CreateDelegate = std::remove_pointer_t<coreclr_create_delegate_ptr>;
  using Property = std::pair<const char*, std::string>;

  static void check(const std::string& step, int status) {
    if (status < 0) {
      std::ostringstream text;
      text << "the runtime cannot " << step << " (0x" << std::hex << status << ")";
      throw std::runtime_error(text.str());
    }
  }

  void start(const std::vector<Property>& properties) {
    std::vector<const char*> names;
    std::vector<const char*> values;
    for (const auto& [name, value] : properties) {
      names.push_back(name);
      values.push_back(value.c_str());
    }
    const auto initialize =
        library_.find<int(const char*, const char*, int, const char**, const char**, void**,
                          unsigned*)>("coreclr_initialize");
    check("start", initialize("/proc/self/exe", "launcher", static_cast<int>(names.size()),
                              names.data(), values.data(), &host_, &domain_));
  }

  Library library_{kFramework / "libcoreclr.so"};
  void* host_ = nullptr;
  unsigned domain_ = 0;
};

// Waits until the plug-in has read what the application has written, for a second at most, and a
// little longer until it has logged it.
void drainOutput() {
  using namespace std::chrono_literals;
  const auto isEmpty = [](int pipe) {
    int unread = 0;
    return ioctl(pipe, FIONREAD, &unread) != 0 || unread == 0;
  };
  std::fflush(nullptr);
  for (int round = 0; round < 100 && !(isEmpty(STDOUT_FILENO) && isEmpty(STDERR_FILENO)); ++round) {
    std::this_thread::sleep_for(10ms);
  }
  std::this_thread::sleep_for(50ms);
}

int launch(const fs::path& file, const char* type, const std::string& id,
           const std::vector<const char*>& arguments) {
  const Application application = findApplication(id);
  if (quillon_register_process(getpid(), application.package.c_str()) != 0) {
    throw std::runtime_error("cannot register this process");
  }
  setenv("QUILLON_APP_ID", id.c_str(), 1);  // for the application
  const Library plugin(file);
  inPlugin = true;
  CALL(plugin, plugin_initialize)(type);
  inPlugin = false;
  Runtime runtime(plugin, application);
  inPlugin = true;
  CALL(plugin, plugin_set_app_info)(id.c_str(), application.assembly.c_str());
  inPlugin = false;
  CALL(plugin, plugin_has_log_control)();
  CALL(plugin, plugin_before_execute)();
  runtime.run(application.assembly, arguments);
  CALL(plugin, plugin_finalize)();
  const int status = runtime.shutDown();
  drainOutput();
  return status;
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 4) {
    dprintf(terminal, "usage: launcher-cxx PLUGIN TYPE APPLICATION [ARGUMENT...]\n");
    return 1;
  }
  std::atexit(explainRefusal);
  try {
    return launch(arguments[1], arguments[2], arguments[3], {arguments + 4, arguments + count});
  } catch (const std::exception& failure) {  // also what the plug-in's functions throw
    inPlugin = false;
    dprintf(terminal, "launcher: %s\n", failure.what());
    return 1;
  }
}
