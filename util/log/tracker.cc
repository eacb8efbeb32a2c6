#include "platform/trace.h"
#include "util/log/log.h"

namespace {

// Tools that read the log identify the lines of a tracker by these origins. They must not change
// when the code moves.
constexpr char kOriginFile[] = "log.h";
constexpr int kEntryLine = 78;
constexpr int kExitLine = 87;

// Returns the part after the last "/", or the whole path if there is none.
std::string lastComponent(const std::string& path) { return path.substr(path.rfind('/') + 1); }

}  // namespace

FunctionEntryExitTracker::FunctionEntryExitTracker(const char* functionText, const char* file,
                                                   int lineNumber)
    : function(functionText),
      fileName(lastComponent(file)),
      filePath(file),
      line(lineNumber),
      message(fileName + "(" + std::to_string(line) + ") " + function) {
  QUILLON_LOG_LINE(DLOG_DEBUG, QUILLON_COLOUR_TRACE, kOriginFile, "FunctionEntryExitTracker",
                   kEntryLine, " +DotNETLog:%s", message.c_str());
  trace_begin(message.c_str());
}

FunctionEntryExitTracker::~FunctionEntryExitTracker() {
  QUILLON_LOG_LINE(DLOG_DEBUG, QUILLON_COLOUR_TRACE, kOriginFile, "~FunctionEntryExitTracker",
                   kExitLine, "-DotNETLog:%s", message.c_str());
  trace_end();
}
