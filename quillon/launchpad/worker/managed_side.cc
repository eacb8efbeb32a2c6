#include "quillon/launchpad/worker/managed_side.h"

#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "quillon/host/runtime/hresult.h"

namespace quillon::launchpad {
namespace {

constexpr char kAssembly[] = "Quillon.Launchpad";
constexpr char kType[] = "Quillon.Launchpad";

template <typename Function>
Expected<void> findMethod(const host::Runtime& runtime, const char* name, Function*& function) {
  void* found = nullptr;
  const int status =
      runtime.createDelegate()(runtime.host(), runtime.domain(), kAssembly, kType, name, &found);
  static_assert(sizeof function == sizeof found);
  std::memcpy(&function, &found, sizeof found);
  if (status >= 0 && found != nullptr) {
    return {};
  }
  return fail(
      std::string("cannot prepare: ") + kType + "." + name + ": " + host::describeHresult(status),
      "build the target 'managed' again");
}

// Appends the name, and a prefix with the value, with a zero byte each. An empty name, made by the
// zero byte of c_str(), ends the list.
void addPair(std::string& list, std::string_view name, std::string_view prefix,
             std::string_view value) {
  list.append(name).append(1, '\0').append(prefix).append(value).append(1, '\0');
}

}  // namespace

std::filesystem::path managedAssembly(const std::filesystem::path& plugin) {
  return plugin.parent_path() / "quillon" / (std::string(kAssembly) + ".dll");
}

Expected<void> ManagedSide::bind(const host::Runtime& runtime) {
  RETURN_IF_FAILED(findMethod(runtime, "WarmUp", warmUp_));
  RETURN_IF_FAILED(findMethod(runtime, "BeginRehearsal", beginRehearsal_));
  RETURN_IF_FAILED(findMethod(runtime, "AwaitRehearsal", awaitRehearsal_));
  RETURN_IF_FAILED(findMethod(runtime, "LoadApplication", loadApplication_));
  RETURN_IF_FAILED(findMethod(runtime, "CompileMain", compileMain_));
  RETURN_IF_FAILED(findMethod(runtime, "LoadedFiles", loadedFiles_));
  return findMethod(runtime, "Assign", assign_);
}

// The warm-up leaves nothing behind: the application's properties replace these, and the variable
// gets its value back. The test value is long because the runtime copies short ones differently.
void ManagedSide::assignOften(const host::RuntimeProperties& properties, size_t times) const {
  constexpr char kVariable[] = "QUILLON_LAUNCHPAD";
  constexpr size_t kLength = 256;
  const char* const before = std::getenv(kVariable);
  const std::string text(kLength, '1');
  if (assign(properties, std::vector<CopiedEnvironment::Change>(times, {kVariable, text}))) {
    const auto value = before != nullptr ? std::optional<std::string_view>(before) : std::nullopt;
    [[maybe_unused]] const bool isRestored = assign({}, {{kVariable, value}});
  }
}

void ManagedSide::warmUp(const host::RuntimeProperties& properties) const {
  warmUp_();
  assignOften(properties, 1);
}

void ManagedSide::warmUpAgain() const {
  constexpr size_t kMoreThanCounted = 40;
  assignOften({}, kMoreThanCounted);
}

bool ManagedSide::loadApplication(const std::string& assembly) const {
  return loadApplication_(assembly.c_str()) == 0;
}

std::optional<std::vector<std::string>> ManagedSide::loadedFiles() const {
  constexpr size_t kSize = size_t{256} << 10;
  std::string buffer(kSize, '\0');
  if (loadedFiles_(buffer.data(), static_cast<int>(kSize)) != 0) {
    return std::nullopt;
  }
  std::vector<std::string> files;
  for (size_t at = 0; buffer[at] != '\0'; at += files.back().size() + 1) {
    files.emplace_back(buffer.c_str() + at);
  }
  return files;
}

bool ManagedSide::assign(const host::RuntimeProperties& properties,
                         const std::vector<CopiedEnvironment::Change>& variables) const {
  std::string settings;
  for (const auto& [name, value] : properties) {
    addPair(settings, name, "", value);
  }
  std::string changes;
  for (const auto& [name, value] : variables) {
    addPair(changes, name, value ? "=" : "", value.value_or(""));
  }
  return assign_(settings.c_str(), changes.c_str()) == 0;
}

}  // namespace quillon::launchpad
