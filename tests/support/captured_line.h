// Captured output in the log of the plug-in, for programs that replace __dlog_print().
#pragma once

#include <cstdarg>
#include <optional>
#include <string_view>

namespace quillon::test {

// What one log line has of an application's output.
struct CapturedLine {
  bool isError;      // from standard error, otherwise from standard output
  const char* text;  // valid as long as the arguments of __dlog_print()
};

// Returns nullopt for a log line that is no captured output.
//
// format, arguments  of __dlog_print(); some arguments have been taken when the function returns
inline std::optional<CapturedLine> capturedLine(const char* format, va_list arguments) {
  if (!std::string_view(format).starts_with("%s: %s(%d) > ")) {
    return std::nullopt;
  }
  va_arg(arguments, const char*);
  const std::string_view function = va_arg(arguments, const char*);
  va_arg(arguments, int);
  const bool isError = function == "stdErrRedirect";
  if (!isError && function != "stdOutRedirect") {
    return std::nullopt;
  }
  return CapturedLine{isError, va_arg(arguments, const char*)};
}

}  // namespace quillon::test
