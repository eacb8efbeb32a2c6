#include "quillon/host/plugin/plugin_library.h"

#include <dlfcn.h>

#include <cstring>
#include <system_error>

#include "quillon/base/files.h"

namespace quillon::host {
namespace {

namespace fs = std::filesystem;

constexpr char kFileName[] = "libquillon-tv-plugin.so";
constexpr char kCxxLibrary[] = "libstdc++.so.6";
constexpr char kRemedy[] =
    "build the target quillon-tv-plugin, or name another plug-in: --plugin FILE";

std::string loaderMessage() {
  const char* message = dlerror();
  return message != nullptr ? message : "unknown cause";
}

// Loads the C++ library that the plug-in and the runtime share, so that its 1,000 calls of its own
// functions are resolved when they are first made. RTLD_NOW, which the plug-in is loaded with,
// would resolve all of them first. The plug-in's signal handlers call nothing of it.
void loadCxxLibrary() { dlopen(kCxxLibrary, RTLD_LAZY | RTLD_LOCAL); }

// Looks up functions until one is missing.
class Symbols {
 public:
  explicit Symbols(void* library) : library_(library) {}

  template <typename Function>
  void find(const char* name, Function*& function) {
    if (missing_ != nullptr) {
      return;
    }
    void* const symbol = dlsym(library_, name);
    if (symbol == nullptr) {
      missing_ = name;
    }
    static_assert(sizeof function == sizeof symbol);
    std::memcpy(&function, &symbol, sizeof symbol);
  }

  const char* missing() const { return missing_; }

 private:
  void* library_;
  const char* missing_ = nullptr;
};

}  // namespace

fs::path defaultPlugin(const fs::path& executable) { return libraryOf(executable, kFileName); }

fs::path pluginOrDefault(const fs::path& named) {
  std::error_code ignored;
  return named.empty() ? defaultPlugin(executablePath()) : fs::absolute(named, ignored);
}

Expected<PluginLibrary> loadPlugin(const fs::path& file) {
  loadCxxLibrary();
  void* const library = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    return fail("cannot load the plug-in '" + file.string() + "': " + loaderMessage(), kRemedy);
  }
  PluginLibrary plugin;
  Symbols symbols(library);
  symbols.find("plugin_initialize", plugin.initialize);
  symbols.find("plugin_preload", plugin.preload);
  symbols.find("plugin_set_app_info", plugin.setAppInfo);
  symbols.find("plugin_has_log_control", plugin.hasLogControl);
  symbols.find("plugin_get_tpa", plugin.getTpa);
  symbols.find("plugin_get_dll_path", plugin.getDllPath);
  symbols.find("plugin_get_native_dll_searching_path", plugin.getNativeDllSearchingPath);
  symbols.find("plugin_get_extra_dll_path", plugin.getExtraDllPath);
  symbols.find("plugin_set_coreclr_info", plugin.setCoreclrInfo);
  symbols.find("plugin_before_execute", plugin.beforeExecute);
  symbols.find("plugin_finalize", plugin.finalize);
  symbols.find("check_signature", plugin.checkSignature);
  symbols.find("plugin_validate_dll", plugin.validateDll);
  symbols.find("create_pipe_server", plugin.createPipeServer);
  symbols.find("create_pipe_client", plugin.createPipeClient);
  if (symbols.missing() == nullptr) {
    return plugin;
  }
  return fail("the plug-in '" + file.string() + "' has no function " + symbols.missing(), kRemedy);
}

}  // namespace quillon::host
