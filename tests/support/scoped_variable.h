// Sets a variable of the environment for the time of a scope.
#pragma once

#include <cstdlib>
#include <optional>
#include <string>

namespace quillon::test {

class ScopedVariable {
 public:
  ScopedVariable(const char* name, const char* value) : name_(name) {
    if (const char* const before = std::getenv(name)) {
      before_ = before;
    }
    setenv(name, value, 1);
  }
  ~ScopedVariable() { before_ ? setenv(name_, before_->c_str(), 1) : unsetenv(name_); }
  ScopedVariable(const ScopedVariable&) = delete;
  ScopedVariable& operator=(const ScopedVariable&) = delete;

 private:
  const char* name_;
  std::optional<std::string> before_;
};

}  // namespace quillon::test
