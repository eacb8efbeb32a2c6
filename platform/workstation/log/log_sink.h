// Log sinks: the targets that log records are written to.
#pragma once

#include <memory>
#include <string>

#include "log/log_record.h"
#include "log/log_settings.h"

namespace quillon::workstation {

class LogSink {
 public:
  virtual ~LogSink() = default;
  // Any thread may call it. Writes a record completely or, if the target fails, not at all.
  virtual void write(const LogRecord& record) = 0;
  // The descriptor that the sink owns and writes to; -1 if it has none.
  [[nodiscard]] virtual int descriptor() const { return -1; }
};

// Opens the sink for the settings. Returns null for LogTarget::kNone, and if the target cannot be
// opened; in that case it sets `problem`.
std::unique_ptr<LogSink> openLogSink(const LogSettings& settings, std::string& problem);

// Returns a sink that owns an open descriptor and writes to it; null if the target uses none.
std::unique_ptr<LogSink> logSinkOn(LogTarget target, int descriptor);

}  // namespace quillon::workstation
