#include "plugin/src/plugin-util/managed_method.h"

namespace {

constexpr int kNoRuntime = static_cast<int>(0x80004003);

}  // namespace

int createManagedMethod(const ManagedRuntime& runtime, const char* assembly, const char* type,
                        const char* method, void** function) {
  *function = nullptr;
  if (runtime.createDelegate == nullptr) {
    return kNoRuntime;
  }
  return runtime.createDelegate(runtime.hostHandle, runtime.domainId, assembly, type, method,
                                function);
}
