#include <cstring>

#include "platform/trace.h"
#include "util/log/log.h"

namespace {

// Tools that read the log identify the lines of a tracker by these origins. They must not change
// when the code moves.
constexpr char kOriginFile[] = "log.h";
constexpr int kEntryLine = 78;
constexpr int kExitLine = 87;

// Returns the part after the last "/", or the whole path if there is none.
const char* lastComponent(const char* path) {
  const char* const slash = std::strrchr(path, '/');
  return slash != nullptr ? slash + 1 : path;
}

// A launch opens dozens of scopes, so the text is built with one allocation.
std::string messageOf(const std::string& file, int line, const std::string& function) {
  const std::string number = std::to_string(line);
  std::string message;
  message.reserve(file.size() + number.size() + function.size() + std::strlen("() "));
  return message.append(file).append("(").append(number).append(") ").append(function);
}

}  // namespace

FunctionEntryExitTracker::FunctionEntryExitTracker(const char* functionText, const char* file,
                                                   int lineNumber)
    : function(functionText),
      fileName(lastComponent(file)),
      filePath(file),
      line(lineNumber),
      message(messageOf(fileName, line, function)) {
  QUILLON_LOG_LINE(DLOG_DEBUG, QUILLON_COLOUR_TRACE, kOriginFile, "FunctionEntryExitTracker",
                   kEntryLine, " +DotNETLog:%s", message.c_str());
  trace_begin(message.c_str());
}

FunctionEntryExitTracker::~FunctionEntryExitTracker() {
  QUILLON_LOG_LINE(DLOG_DEBUG, QUILLON_COLOUR_TRACE, kOriginFile, "~FunctionEntryExitTracker",
                   kExitLine, "-DotNETLog:%s", message.c_str());
  trace_end();
}
