// What the parts of the recording platform share.
#pragma once

#include <initializer_list>
#include <mutex>
#include <string>

#include "tests/support/recording_platform.h"

namespace quillon::test {

// Held while a record is added.
std::mutex& recorderMutex();

// Notes the call of a service as "function(a, b)". Returns 0, or the failure that the test set.
int record(const char* function, std::initializer_list<std::string> arguments);

// Text for a record: "null" for a null pointer.
inline std::string textOf(const char* text) { return text == nullptr ? "null" : text; }

// Something that the service hands out: the id that it stands for, and the texts that live as long.
struct Handle {
  std::string id;
  std::string text;  // the last text handed out
};

inline std::string idOf(const Handle* handle) { return handle == nullptr ? "null" : handle->id; }

// A new handle, noted as open.
Handle* openHandle(const std::string& id);
// Notes the end of a handle. A null one, or one that is not open, is refused.
int closeHandle(Handle* handle);

// The package or application of that id; null when the test declared none.
const FakePackage* findPackage(const std::string& id);
const FakeApplication* findApplication(const std::string& id);
// The package that the application belongs to.
const FakePackage* packageOf(const std::string& applicationId);

// The result of a failed service call that the test did not choose.
inline constexpr int kFailed = -1;

}  // namespace quillon::test
