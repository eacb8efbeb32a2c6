#include "quillon/resolution/hostfxr.h"

#include <dlfcn.h>

#include <cstring>

namespace quillon::resolution {
namespace {

// A variable of the thread, because the host's error writer has no argument for context. The host
// keeps one writer for each thread.
std::string& hostMessages() {
  thread_local std::string messages;
  return messages;
}

void addHostMessage(const char* message) { hostMessages().append(message).append(1, '\n'); }

template <typename Function>
bool find(void* library, const char* name, Function*& function) {
  void* const symbol = dlsym(library, name);
  static_assert(sizeof function == sizeof symbol);
  std::memcpy(&function, &symbol, sizeof symbol);
  return symbol != nullptr;
}

std::vector<const char*> argumentsFor(const std::string& assembly, RollForward rollForward) {
  if (rollForward == RollForward::kLatestMajor) {
    return {"--roll-forward", "LatestMajor", assembly.c_str()};
  }
  return {assembly.c_str()};
}

}  // namespace

Expected<Hostfxr> Hostfxr::load(const std::filesystem::path& library) {
  Hostfxr host;
  void* const loaded = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
  const bool isComplete =
      loaded != nullptr &&
      find(loaded, "hostfxr_initialize_for_dotnet_command_line", host.initialize_) &&
      find(loaded, "hostfxr_get_runtime_properties", host.getProperties_) &&
      find(loaded, "hostfxr_set_error_writer", host.setErrorWriter_);
  if (!isComplete) {
    return fail(std::string("cannot load .NET's host: ") + dlerror(),
                "install the machine's .NET again");
  }
  return host;
}

Hostfxr::Answer Hostfxr::initialize(const std::string& assembly, const std::filesystem::path& root,
                                    RollForward rollForward) const {
  hostMessages().clear();
  const std::string hostPath = root / "dotnet";
  const Parameters parameters{sizeof parameters, hostPath.c_str(), root.c_str()};
  std::vector<const char*> arguments = argumentsFor(assembly, rollForward);
  void* context = nullptr;
  const ErrorWriter before = setErrorWriter_(addHostMessage);
  Answer answer;
  answer.status =
      initialize_(static_cast<int>(arguments.size()), arguments.data(), &parameters, &context);
  size_t count = 0;
  if (answer.status >= 0) {
    getProperties_(context, &count, nullptr, nullptr);
  }
  std::vector<const char*> names(count);
  std::vector<const char*> values(count);
  if (count > 0 && getProperties_(context, &count, names.data(), values.data()) >= 0) {
    for (size_t i = 0; i < count; ++i) {
      answer.properties.emplace_back(names[i], values[i]);
    }
  }
  setErrorWriter_(before);
  answer.messages = std::move(hostMessages());
  return answer;
}

std::optional<std::pair<std::string, std::string>> missingFrameworkIn(const std::string& messages) {
  const auto quotedAfter = [&](const char* before, size_t from) -> std::string {
    const size_t found = messages.find(before, from);
    if (found == std::string::npos) {
      return {};
    }
    const size_t start = found + std::strlen(before);
    return messages.substr(start, messages.find('\'', start) - start);
  };
  constexpr char kName[] = "Framework: '";
  const std::string name = quotedAfter(kName, 0);
  const std::string version = quotedAfter("version '", messages.find(kName));
  if (name.empty() || version.empty()) {
    return std::nullopt;
  }
  return std::pair(name, version);
}

}  // namespace quillon::resolution
