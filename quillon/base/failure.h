// A failure to report to the user: what went wrong, and how to fix it.
//
//   Expected<Record> readRecord(const Path& file) {
//     ASSIGN_OR_RETURN(const std::string text, readText(file));    // returns a failure to the
//     caller RETURN_IF_FAILED(requireVersion(text));                      // the same, without a
//     value if (text.empty()) return fail("'" + file + "' is empty", "create it again");
//     ...
//   }
#pragma once

#include <tl/expected.hpp>

#include <string>
#include <utility>

#include "quillon/base/exit_status.h"

namespace quillon {

struct Failure {
  std::string what;    // "no package 'org.example.clock' is installed"
  std::string remedy;  // "install it: quillon package install MANIFEST.toml"; may be empty
  ExitStatus status = kServiceFailed;  // of the command that reports it
};

// A value of type T, or a failure.
template <typename T>
using Expected = tl::expected<T, Failure>;

inline tl::unexpected<Failure> fail(std::string what, std::string remedy = {}) {
  return tl::unexpected<Failure>(Failure{std::move(what), std::move(remedy)});
}

// Returns `failure` with its exit status replaced.
inline Failure withStatus(ExitStatus status, Failure failure) {
  failure.status = status;
  return failure;
}

// Returns `result`, with the exit status replaced if it is a failure.
template <typename T>
Expected<T> withStatus(ExitStatus status, Expected<T> result) {
  if (!result) {
    result.error().status = status;
  }
  return result;
}

// A failure with the exit status `status`.
inline tl::unexpected<Failure> fail(ExitStatus status, Failure failure) {
  return tl::unexpected<Failure>(withStatus(status, std::move(failure)));
}

}  // namespace quillon

// Returns the failure of `expression` from the calling function, if it has failed.
#define RETURN_IF_FAILED(expression)                     \
  do {                                                   \
    if (auto result_ = (expression); !result_) {         \
      return tl::unexpected(std::move(result_).error()); \
    }                                                    \
  } while (false)

// Assigns the value of `expression` to `target`, a variable or a declaration, or returns its
// failure from the calling function. Expands to several statements: use it once per line, and only
// inside braces.
#define ASSIGN_OR_RETURN(target, expression) \
  QUILLON_ASSIGN_OR_RETURN_(target, expression, QUILLON_CONCATENATE_(result_, __LINE__))
#define QUILLON_ASSIGN_OR_RETURN_(target, expression, result)    \
  auto result = (expression);                                    \
  if (!result) return tl::unexpected(std::move(result).error()); \
  target = std::move(*result)
#define QUILLON_CONCATENATE_(one, other) QUILLON_CONCATENATE_EXPANDED_(one, other)
#define QUILLON_CONCATENATE_EXPANDED_(one, other) one##other
