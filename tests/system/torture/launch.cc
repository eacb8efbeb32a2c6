#include "tests/system/torture/launch.h"

#include <dlfcn.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <new>
#include <stdexcept>

#include "quillon_tv_plugin.h"

namespace quillon::torture {
namespace {

constexpr std::size_t kCapacity = std::size_t{65} * 1024 * 1024;
constexpr unsigned kLaunchSeconds = 60;

std::atomic<bool> waits{true};
decltype(&plugin_initialize) initialize = nullptr;
decltype(&plugin_get_tpa) getTpa = nullptr;
decltype(&plugin_get_dll_path) getDllPath = nullptr;

template <typename Function>
void resolve(void* library, const char* name, Function& function) {
  function = reinterpret_cast<Function>(dlsym(library, name));
  if (function == nullptr) {
    throw std::runtime_error(std::string("the plug-in has no function ") + name);
  }
}

std::string endingOf(int status) {
  if (WIFSIGNALED(status)) {
    return "signal " + std::to_string(WTERMSIG(status));
  }
  return WEXITSTATUS(status) == 0 ? "" : "status " + std::to_string(WEXITSTATUS(status));
}

}  // namespace

struct SharedText::Memory {
  std::atomic<bool> isSet;
  std::size_t size;
  alignas(std::max_align_t) char bytes[kCapacity];
};

SharedText::SharedText() {
  void* mapping = mmap(nullptr, sizeof(Memory), PROT_READ | PROT_WRITE,
                       MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (mapping == MAP_FAILED) {
    throw std::bad_alloc();
  }
  memory = static_cast<Memory*>(mapping);
}

SharedText::~SharedText() { munmap(memory, sizeof(Memory)); }

void SharedText::set(const char* text) {
  memory->size = std::min(std::strlen(text), kCapacity);
  std::memcpy(memory->bytes, text, memory->size);
  memory->isSet = true;
}

std::optional<std::string> SharedText::get() const {
  if (!memory->isSet) {
    return std::nullopt;
  }
  return std::string(memory->bytes, memory->size);
}

void* SharedText::bytes() { return memory->bytes; }

void loadPlugin() {
  void* library = dlopen(QUILLON_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    throw std::runtime_error(dlerror());
  }
  resolve(library, "plugin_initialize", initialize);
  resolve(library, "plugin_get_tpa", getTpa);
  resolve(library, "plugin_get_dll_path", getDllPath);
}

void initializePlugin() { initialize("inhouse"); }

const char* assemblyList() { return getTpa(); }

const char* libraryFolders() { return getDllPath(); }

Launched launch(const std::function<void()>& prepare,
                const std::function<std::string()>& readLists) {
  SharedText text;
  const pid_t child = fork();
  if (child == 0) {
    alarm(kLaunchSeconds);
    if (prepare) {
      prepare();
    }
    initializePlugin();
    if (readLists) {
      text.set(readLists().c_str());
    } else {
      const char* list = assemblyList();
      text.set(list == nullptr ? "" : list);
    }
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return {text.get(), endingOf(status)};
}

void waitForDisk(bool wait) { waits = wait; }

}  // namespace quillon::torture

extern "C" {

// These replace the functions of the C library also for the plug-in, which calls them through the
// dynamic symbol table.
void sync() {
  if (quillon::torture::waits) {
    syscall(SYS_sync);
  }
}

int fsync(int descriptor) {
  return quillon::torture::waits ? static_cast<int>(syscall(SYS_fsync, descriptor)) : 0;
}

}  // extern "C"
