// A log record and its text forms, which docs/workstation-log-and-trace.md describes.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace quillon::workstation {

struct LogRecord {
  int64_t timeUs;  // since the epoch
  pid_t pid;
  pid_t tid;
  int id;
  int priority;
  std::string_view tag;
  std::string_view text;  // formatted, with line break and colours
};

// 'D' for debug, 'I' for info and so on; '?' for a priority that the platform does not define.
char priorityLetter(int priority);

// "L/TAG(pid,tid): text\n"
std::string shortLine(const LogRecord& record);

// The same for a terminal. Each line of the text begins as the first one does, with its origin and
// colour, and shows what a terminal shows of it: what follows its last carriage return.
std::string terminalLines(const LogRecord& record);

// "YYYY-MM-DD hh:mm:ss.uuuuuu L/TAG(pid,tid): text\n", the time in UTC.
std::string fullLine(const LogRecord& record);

// One JSON object and a line break.
std::string jsonLine(const LogRecord& record);

// `text` without colour escapes ("\x1b[...m").
std::string withoutColours(std::string_view text);

// `text` without a line break at its end.
std::string_view withoutLineBreak(std::string_view text);

}  // namespace quillon::workstation
