#include "quillon/host/runtime/runtime.h"

#include <dlfcn.h>
#include <sys/resource.h>

#include <cstring>

#include "quillon/host/runtime/hresult.h"

namespace quillon::host {
namespace {

constexpr char kLibrary[] = "libcoreclr.so";
constexpr char kCompiler[] = "libclrjit.so";
constexpr char kRemedy[] =
    "the framework folder is damaged or of another machine: make the device root again with a "
    "working .NET runtime (quillon device init)";
// The runtime needs about 60 descriptors for a small application, and reports a lack of them in
// many ways, most of which do not name it.
constexpr rlim_t kFewDescriptors = 64;

// The messages that the runtime reported during the current step. They are in a static variable
// because the runtime's error writer has no argument for context.
std::string& runtimeMessages() {
  static std::string messages;
  return messages;
}

void addRuntimeMessage(const char* message) {
  std::string& messages = runtimeMessages();
  if (!messages.empty()) {
    messages += ' ';
  }
  messages += message;
}

// "; the runtime says: ..." without trailing line breaks; empty without a message.
std::string messageSuffix() {
  std::string text = runtimeMessages();
  while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) {
    text.pop_back();
  }
  return text.empty() ? text : "; the runtime says: " + text;
}

template <typename Function>
bool find(void* library, const char* name, Function*& function) {
  void* const symbol = dlsym(library, name);
  static_assert(sizeof function == sizeof symbol);
  std::memcpy(&function, &symbol, sizeof symbol);
  return symbol != nullptr;
}

std::string remedy() {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  return limit.rlim_cur < kFewDescriptors ? "raise the limit of open files, which is only " +
                                                std::to_string(limit.rlim_cur) + " (ulimit -n)"
                                          : kRemedy;
}

// Names the file for every cause. The runtime names it in some of its messages only.
Failure failedStep(const std::string& step, const std::filesystem::path& file, int status) {
  return {
      step + " of '" + file.string() + "' failed with " + describeHresult(status) + messageSuffix(),
      remedy()};
}

}  // namespace

Expected<Runtime> Runtime::load(const std::filesystem::path& framework) {
  Runtime runtime;
  runtime.library_ = framework / kLibrary;
  void* const library = dlopen(runtime.library_.c_str(), RTLD_NOW | RTLD_LOCAL);
  // Load the compiler too: the runtime loads it later, and aborts without naming it on failure.
  if (library == nullptr ||
      dlopen((framework / kCompiler).c_str(), RTLD_NOW | RTLD_LOCAL) == nullptr) {
    return fail(std::string("cannot load the runtime: ") + dlerror(), remedy());
  }
  const bool complete = find(library, "coreclr_initialize", runtime.initialize_) &&
                        find(library, "coreclr_execute_assembly", runtime.execute_) &&
                        find(library, "coreclr_shutdown_2", runtime.shutDown_) &&
                        find(library, "coreclr_create_delegate", runtime.createDelegate_);
  if (!complete) {
    return fail("'" + runtime.library_.string() + "' is no .NET runtime: " + dlerror(), kRemedy);
  }
  find(library, "coreclr_set_error_writer", runtime.setErrorWriter_);
  return runtime;
}

Expected<void> Runtime::start(const std::filesystem::path& executable,
                              const std::string& domainName, const RuntimeProperties& properties) {
  std::vector<const char*> names;
  std::vector<const char*> values;
  for (const auto& [name, value] : properties) {
    names.push_back(name.c_str());
    values.push_back(value.c_str());
  }
  if (setErrorWriter_ != nullptr) {
    setErrorWriter_(addRuntimeMessage);
  }
  const int status =
      initialize_(executable.c_str(), domainName.c_str(), static_cast<int>(properties.size()),
                  names.data(), values.data(), &host_, &domain_);
  if (setErrorWriter_ != nullptr) {
    setErrorWriter_(nullptr);
  }
  if (status >= 0) {
    return {};
  }
  return tl::unexpected(failedStep("coreclr_initialize", library_, status));
}

Expected<unsigned> Runtime::execute(const std::string& assembly,
                                    const std::vector<std::string>& arguments) {
  std::vector<const char*> values;
  values.reserve(arguments.size());
  for (const std::string& argument : arguments) {
    values.push_back(argument.c_str());
  }
  unsigned exitStatus = 0;
  const int status = execute_(host_, domain_, static_cast<int>(values.size()), values.data(),
                              assembly.c_str(), &exitStatus);
  if (status >= 0) {
    return exitStatus;
  }
  return fail("the runtime cannot run '" + assembly + "': " + describeHresult(status),
              "build it as an executable assembly for this runtime (OutputType Exe)");
}

int Runtime::shutDown() {
  int latched = 0;
  shutDown_(host_, domain_, &latched);
  return latched;
}

}  // namespace quillon::host
