// The forms of a log record whose tag and text an application chooses. Input: the tag on a line,
// then the text.
#include <nlohmann/json.hpp>

#include <algorithm>

#include "log/log_record.h"
#include "quillon/cli/colour_filter.h"
#include "tests/fuzz/target.h"

namespace {

using quillon::workstation::LogRecord;

void requireLines(const LogRecord& record) {
  const std::string tag(record.tag);
  const std::string prefix = "E/" + tag + "(1,2): ";
  const std::string line = shortLine(record);
  const std::string_view text = quillon::workstation::withoutLineBreak(record.text);
  FUZZ_REQUIRE(line == prefix + std::string(text) + "\n");
  FUZZ_REQUIRE(fullLine(record) == "1970-01-01 00:00:00.000003 " + line);
  // No line of a terminal hides its origin: each begins with it, and none goes back to its start.
  std::string lines = terminalLines(record);
  FUZZ_REQUIRE(lines.starts_with(prefix) && lines.ends_with('\n'));
  FUZZ_REQUIRE(std::count(lines.begin(), lines.end(), '\n') ==
               1 + std::count(text.begin(), text.end(), '\n') +
                   std::count(tag.begin(), tag.end(), '\n'));
}

void requireJson(const LogRecord& record) {
  const std::string line = jsonLine(record);
  FUZZ_REQUIRE(line.ends_with("}\n") && std::count(line.begin(), line.end(), '\n') == 1);
  const auto json = nlohmann::json::parse(line, nullptr, false);
  FUZZ_REQUIRE(json.is_object());
  const auto text = json.at("text").get<std::string>();
  FUZZ_REQUIRE(text == record.text || text.find("\xef\xbf\xbd") != text.npos);
}

// The filter removes what the log removes, also if its input comes in two parts.
void requireFilter(std::string_view text) {
  quillon::cli::ColourFilter whole;
  const std::string filtered = whole(text);
  for (const std::size_t first : {text.size() / 2, text.size() / 3, std::size_t{1}}) {
    quillon::cli::ColourFilter parts;
    std::string joined = parts(text.substr(0, first));
    joined += parts(text.substr(std::min(first, text.size())));
    FUZZ_REQUIRE(joined == filtered);
  }
  FUZZ_REQUIRE(text.find('\x1b') != text.npos || filtered == text);
  FUZZ_REQUIRE(quillon::workstation::withoutColours(text).size() <= text.size());
}

}  // namespace

FUZZ_TARGET(log_record) {
  Input input(bytes);
  const std::string_view tag = input.line();
  const LogRecord record{3, 1, 2, 0, 6, tag, input.rest()};
  requireLines(record);
  requireJson(record);
  requireFilter(input.rest());
}
