// A minimal host for managed applications, as a reference for the launcher.
//
// usage: bare_host PROPERTIES ASSEMBLY [ARGUMENT...]
//
// PROPERTIES is a file with all runtime properties, one NAME=VALUE on each line, including the list
// of trusted assemblies. So the host resolves nothing itself.
#include <dlfcn.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

namespace {

constexpr char kRuntime[] = "/usr/share/dotnet.velora/netcoreapp/libcoreclr.so";

using Initialize = int(const char*, const char*, int, const char**, const char**, void**,
                       unsigned*);
using Execute = int(void*, unsigned, int, const char**, const char*, unsigned*);
using ShutDown = int(void*, unsigned, int*);

template <typename Function>
Function* find(void* library, const char* name) {
  return reinterpret_cast<Function*>(dlsym(library, name));
}

struct Properties {
  std::vector<std::string> lines;
  std::vector<const char*> names;
  std::vector<const char*> values;
};

Properties readProperties(const char* file) {
  Properties properties;
  std::ifstream stream(file);
  for (std::string line; std::getline(stream, line);) {
    properties.lines.push_back(line);
  }
  for (std::string& line : properties.lines) {
    const size_t end = line.find('=');
    line[end] = '\0';
    properties.names.push_back(line.c_str());
    properties.values.push_back(line.c_str() + end + 1);
  }
  return properties;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    return std::fprintf(stderr, "usage: bare_host PROPERTIES ASSEMBLY\n"), 100;
  }
  Properties properties = readProperties(argv[1]);
  void* const runtime = dlopen(kRuntime, RTLD_NOW | RTLD_LOCAL);
  if (runtime == nullptr) {
    return std::fprintf(stderr, "%s\n", dlerror()), 100;
  }
  void* host = nullptr;
  unsigned domain = 0;
  if (find<Initialize>(runtime, "coreclr_initialize")(
          argv[0], "bare", static_cast<int>(properties.names.size()), properties.names.data(),
          properties.values.data(), &host, &domain) < 0) {
    return 101;
  }
  std::vector<const char*> arguments(argv + 3, argv + argc);
  unsigned status = 0;
  if (find<Execute>(runtime, "coreclr_execute_assembly")(host, domain, argc - 3, arguments.data(),
                                                         argv[2], &status) < 0) {
    return 102;
  }
  int latched = 0;
  find<ShutDown>(runtime, "coreclr_shutdown_2")(host, domain, &latched);
  return latched;
}
