// Where log records go. One sink serves a process from the library's load until the process ends.
#pragma once

#include <memory>
#include <string>

#include "log/log_record.h"
#include "log/log_settings.h"

namespace quillon::workstation {

class LogSink {
 public:
  virtual ~LogSink() = default;
  // Any thread may call it; a record is written whole or, where the target fails, not at all.
  virtual void write(const LogRecord& record) = 0;
  // What it writes to; -1 where that is no descriptor of the sink's own.
  [[nodiscard]] virtual int descriptor() const { return -1; }
};

// The sink of the settings; null for LogTarget::kNone. Where the target cannot be opened,
// `problem` says so and the result is null.
std::unique_ptr<LogSink> openLogSink(const LogSettings& settings, std::string& problem);

// A sink that writes to a descriptor which is open already, and owns it; null for a target that has
// none.
std::unique_ptr<LogSink> logSinkOn(LogTarget target, int descriptor);

}  // namespace quillon::workstation
