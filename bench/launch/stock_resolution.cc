// Times the stock host until it has resolved the runtime's properties, without starting the
// runtime. The reference for the launcher's lists. Prints "resolution" and microseconds.
//
// usage: stock_resolution HOSTFXR DOTNET_ROOT ASSEMBLY
//
// Uses the host's public interface (docs/design/features/native-hosting.md of the .NET runtime).
#include <dlfcn.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>

namespace {

struct Parameters {
  size_t size;
  const char* hostPath;
  const char* dotnetRoot;
};

using Initialize = int32_t(int, const char**, const Parameters*, void**);
using GetProperties = int32_t(void*, size_t*, const char**, const char**);
using Close = int32_t(void*);

constexpr size_t kMaxProperties = 100;

template <typename Function>
Function* find(void* library, const char* name) {
  return reinterpret_cast<Function*>(dlsym(library, name));
}

// Returns the number of properties; 0 if the host cannot resolve the application.
size_t resolve(const char* library, const char* root, const char* assembly) {
  void* const host = dlopen(library, RTLD_NOW | RTLD_LOCAL);
  if (host == nullptr) {
    return 0;
  }
  const Parameters parameters{sizeof(Parameters), nullptr, root};
  void* context = nullptr;
  if (find<Initialize>(host, "hostfxr_initialize_for_dotnet_command_line")(
          1, &assembly, &parameters, &context) < 0) {
    return 0;
  }
  std::array<const char*, kMaxProperties> names{};
  std::array<const char*, kMaxProperties> values{};
  size_t count = names.size();
  if (find<GetProperties>(host, "hostfxr_get_runtime_properties")(context, &count, names.data(),
                                                                  values.data()) < 0) {
    return 0;
  }
  return count;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    return 100;
  }
  const auto start = std::chrono::steady_clock::now();
  if (resolve(argv[1], argv[2], argv[3]) == 0) {
    return 101;
  }
  const std::chrono::duration<double, std::micro> taken = std::chrono::steady_clock::now() - start;
  std::printf("resolution %.1f\n", taken.count());
  return 0;
}
