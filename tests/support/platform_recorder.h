// Helpers of the recording platform.
#pragma once

#include <initializer_list>
#include <mutex>
#include <string>

#include "tests/support/recording_platform.h"

namespace quillon::test {

// Held while a record is added.
std::mutex& recorderMutex();

// Records a service call as "function(a, b)". Returns 0, or the failure that the test has set.
int record(const char* function, std::initializer_list<std::string> arguments);

// Text for a record: "null" for a null pointer.
inline std::string textOf(const char* text) { return text == nullptr ? "null" : text; }

// A handle of a service: the id of its object, and texts that live as long as the handle.
struct Handle {
  std::string id;
  std::string text;  // the last text returned
};

inline std::string idOf(const Handle* handle) { return handle == nullptr ? "null" : handle->id; }

// Creates a handle and records it as open.
Handle* openHandle(const std::string& id);
// Records the release of a handle. Fails if it is null or not open.
int closeHandle(Handle* handle);

// The package or application with that id; null if the test has not declared it.
const FakePackage* findPackage(const std::string& id);
const FakeApplication* findApplication(const std::string& id);
// The package that contains the application.
const FakePackage* packageOf(const std::string& applicationId);

// The default result of a failed service call.
inline constexpr int kFailed = -1;

// Returns `failure` and stores a pointer in `*result` that nobody may use, release or free. A
// service may do so when it fails, so every test finds out whether the code under test uses the
// result of a failed call.
template <typename Pointer>
int failWithGarbage(int failure, Pointer* result) {
  *result = reinterpret_cast<Pointer>(0x5a5a5a5a5a5a5a5a);
  return failure;
}

}  // namespace quillon::test
