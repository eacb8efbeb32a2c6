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
};

// The sink of the settings; null for LogTarget::kNone. Where the target cannot be opened,
// `problem` says so and the result is null.
std::unique_ptr<LogSink> openLogSink(const LogSettings& settings, std::string& problem);

}  // namespace quillon::workstation
