#include "log/log_record.h"

#include <array>
#include <chrono>
#include <cstdio>

#include "text/json_text.h"

namespace quillon::workstation {
namespace {

// Does not use libc's time zone functions: in a forked child, their lock may be held by a thread of
// the parent that does not exist here.
std::string utcTime(int64_t timeUs) {
  using std::chrono::days;
  using std::chrono::floor;
  using std::chrono::microseconds;
  const std::chrono::sys_time<microseconds> time{microseconds(timeUs)};
  const auto day = floor<days>(time);
  const std::chrono::year_month_day date{day};
  const std::chrono::hh_mm_ss clock{time - day};
  std::array<char, 64> text{};
  std::snprintf(
      text.data(), text.size(), "%04d-%02u-%02u %02d:%02d:%02d.%06d", static_cast<int>(date.year()),
      static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
      static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
      static_cast<int>(clock.seconds().count()), static_cast<int>(clock.subseconds().count()));
  return text.data();
}

constexpr std::string_view kColour = "\x1b[";
constexpr std::string_view kReset = "\x1b[0m";

// Removes the first `length` characters from `text` and returns them.
std::string_view take(std::string_view& text, size_t length) {
  const std::string_view taken = text.substr(0, length);
  text.remove_prefix(taken.size());
  return taken;
}

// Takes "<file>: <function>(<line>) > ", if the text begins so, and the colour that follows.
std::string_view takeOrigin(std::string_view& text) {
  constexpr std::string_view kBreak = ") > ";
  const size_t at = text.substr(0, text.find('\n')).find(kBreak);
  return take(text, at == text.npos ? 0 : at + kBreak.size());
}

std::string_view takeColour(std::string_view& text) {
  if (!text.starts_with(kColour)) {
    return {};
  }
  const size_t end = text.find_first_not_of("0123456789;", kColour.size());
  return take(text, end != text.npos && text[end] == 'm' ? end + 1 : 0);
}

std::string_view shownPart(std::string_view line) {
  while (line.ends_with('\r')) {
    line.remove_suffix(1);
  }
  const size_t at = line.rfind('\r');
  return at == line.npos ? line : line.substr(at + 1);
}

std::string linePrefix(const LogRecord& record) {
  std::string prefix(1, priorityLetter(record.priority));
  prefix += '/';
  prefix += record.tag;
  prefix += '(' + std::to_string(record.pid) + ',' + std::to_string(record.tid) + "): ";
  return prefix;
}

}  // namespace

char priorityLetter(int priority) {
  constexpr std::string_view kLetters = "??VDIWEFS";
  const auto index = static_cast<size_t>(priority);
  return priority >= 0 && index < kLetters.size() ? kLetters[index] : '?';
}

std::string shortLine(const LogRecord& record) {
  std::string line = linePrefix(record);
  line += withoutLineBreak(record.text);
  line += '\n';
  return line;
}

std::string terminalLines(const LogRecord& record) {
  std::string_view text = withoutLineBreak(record.text);
  std::string start = linePrefix(record);
  start += takeOrigin(text);
  const std::string_view colour = takeColour(text);
  start += colour;
  const bool isReset = !colour.empty() && text.ends_with(kReset);
  text.remove_suffix(isReset ? kReset.size() : 0);
  std::string lines;
  for (bool last = false; !last;) {
    const size_t end = text.find('\n');
    last = end == text.npos;
    lines.append(start).append(shownPart(take(text, end)));
    lines.append(isReset ? kReset : "").append(1, '\n');
    take(text, last ? 0 : 1);
  }
  return lines;
}

std::string fullLine(const LogRecord& record) {
  return utcTime(record.timeUs) + ' ' + shortLine(record);
}

std::string jsonLine(const LogRecord& record) {
  return "{\"time_us\":" + std::to_string(record.timeUs) +
         ",\"pid\":" + std::to_string(record.pid) + ",\"tid\":" + std::to_string(record.tid) +
         ",\"id\":" + std::to_string(record.id) +
         ",\"priority\":" + std::to_string(record.priority) + ",\"tag\":" + jsonQuote(record.tag) +
         ",\"text\":" + jsonQuote(record.text) + "}\n";
}

std::string withoutColours(std::string_view text) {
  constexpr std::string_view kOpen = "\x1b[";
  std::string plain;
  plain.reserve(text.size());
  while (!text.empty()) {
    const size_t start = text.find(kOpen);
    const size_t end = start == text.npos
                           ? text.npos
                           : text.find_first_not_of("0123456789;", start + kOpen.size());
    if (end == text.npos) {
      break;
    }
    const bool colour = text[end] == 'm';
    plain += text.substr(0, colour ? start : end);
    text.remove_prefix(colour ? end + 1 : end);
  }
  plain += text;
  return plain;
}

std::string_view withoutLineBreak(std::string_view text) {
  if (text.ends_with('\n')) {
    text.remove_suffix(1);
  }
  return text;
}

}  // namespace quillon::workstation
