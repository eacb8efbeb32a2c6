#include "quillon/resolution/hostpolicy.h"

#include <dlfcn.h>

#include <cstring>
#include <exception>
#include <sstream>

#include "quillon/resolution/hostfxr.h"
#include "quillon/resolution/machine_host.h"

namespace quillon::resolution {
namespace {

constexpr char kProperty[] = "PINVOKE_OVERRIDE";
constexpr char kManagedName[] = "libhostpolicy";  // as managed code names it
constexpr char kLibrary[] = "libhostpolicy.so";

// Never destroyed: threads of the application may read it until the process ends.
std::string& application() {
  static auto& assembly = *new std::string;
  return assembly;
}

// The library that the host has loaded; null if it did not.
void* initializeHostpolicy() try {
  const auto host = machineHost();
  const auto hostfxr = host ? Hostfxr::load(host->library) : fail("this machine has no .NET host");
  if (!hostfxr) {
    return nullptr;
  }
  // The choice of frameworks does not matter to the library's answers.
  const auto answer = hostfxr->initialize(application(), host->root, RollForward::kLatestMajor);
  return answer.status < 0 ? nullptr : dlopen(kLibrary, RTLD_LAZY | RTLD_NOLOAD);
} catch (const std::exception&) {
  return nullptr;
}

FindFunction findOthers = nullptr;

// The type PInvokeOverrideFn of the runtime.
const void* findFunction(const char* library, const char* function) {
  if (std::strcmp(library, kManagedName) != 0) {
    return findOthers == nullptr ? nullptr : findOthers(library, function);
  }
  static void* const hostpolicy = initializeHostpolicy();
  return hostpolicy == nullptr ? nullptr : dlsym(hostpolicy, function);
}

}  // namespace

void addHostpolicy(host::RuntimeProperties& properties, FindFunction others) {
  findOthers = others;
  std::ostringstream address;
  address << reinterpret_cast<const void*>(&findFunction);
  properties.emplace_back(kProperty, address.str());
}

void setHostpolicyApplication(const std::string& assembly) { application() = assembly; }

}  // namespace quillon::resolution
