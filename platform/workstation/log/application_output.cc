#include "log/application_output.h"

#include <string_view>

namespace quillon::workstation {
namespace {

// The beginning of the plug-in's log formats, and the origin in its records of captured output.
constexpr std::string_view kPrefix = "%s: %s(%d) > ";
constexpr std::string_view kFile = "log.cc";
constexpr std::string_view kFunction = "stdOutRedirect";

}  // namespace

bool isApplicationOutput(const char* format, va_list arguments) {
  if (!std::string_view(format).starts_with(kPrefix)) {
    return false;
  }
  const char* const file = va_arg(arguments, const char*);
  const char* const function = va_arg(arguments, const char*);
  return file != nullptr && function != nullptr && file == kFile && function == kFunction;
}

}  // namespace quillon::workstation
