#include "tests/system/compatibility/page.h"

#include <algorithm>
#include <sstream>
#include <string_view>

namespace quillon::test {
namespace {

constexpr char kBegin[] = "<!-- rows: begin -->\n";
constexpr char kEnd[] = "<!-- rows: end -->\n";
constexpr char kHead[] =
    "| Application | Status | Direct | Through a launch pad | Remark |\n"
    "|---|---|---|---|---|\n";
constexpr char kOwnPrefix[] = "quillon: ";
constexpr int kFirstOwnStatus = 100;
constexpr int kLastOwnStatus = 118;
constexpr size_t kMaxQuoted = 120;

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

// The last line that the launcher wrote about itself, without its prefix; empty if there is none.
std::string lastOwnLine(const std::string& text) {
  std::string last;
  for (const std::string& line : linesOf(text)) {
    if (line.starts_with(kOwnPrefix)) {
      last = line.substr(sizeof kOwnPrefix - 1);
    }
  }
  return last;
}

std::string quoted(const std::vector<std::string>& lines, size_t index) {
  if (index >= lines.size()) {
    return "nothing more";
  }
  std::string text;
  for (const char character : lines[index].substr(0, kMaxQuoted)) {
    text += static_cast<unsigned char>(character) < ' ' ? '?' : character;
  }
  return "\"" + text + "\"";
}

std::string outputDifference(const std::string& stock, const std::string& launched) {
  const std::vector<std::string> expected = linesOf(stock);
  const std::vector<std::string> found = linesOf(launched);
  size_t at = 0;
  while (at < expected.size() && at < found.size() && expected[at] == found[at]) {
    ++at;
  }
  return "prints " + quoted(found, at) + " instead of " + quoted(expected, at);
}

}  // namespace

std::string compare(const CommandResult& stock, const CommandResult& launched) {
  if (stock.status == launched.status && stock.out == launched.out) {
    return kEqual;
  }
  const std::string own = lastOwnLine(launched.err);
  if (launched.status >= kFirstOwnStatus && launched.status <= kLastOwnStatus && !own.empty()) {
    return "refused with " + std::to_string(launched.status) + ": " + own;
  }
  std::string text = "differs:";
  if (stock.status != launched.status) {
    text += " ends with " + std::to_string(launched.status);
  }
  if (stock.out != launched.out) {
    text +=
        (stock.status != launched.status ? ", " : " ") + outputDifference(stock.out, launched.out);
  }
  return text;
}

std::string merge(const std::vector<TypeResult>& results) {
  std::vector<TypeResult> groups;  // each with the types of one result
  for (const TypeResult& result : results) {
    const auto same = std::find_if(groups.begin(), groups.end(), [&](const TypeResult& group) {
      return group.cell == result.cell;
    });
    if (same == groups.end()) {
      groups.push_back(result);
    } else {
      same->type += ", " + result.type;
    }
  }
  if (groups.size() == 1) {
    return groups.front().cell;
  }
  std::string text;
  for (const TypeResult& group : groups) {
    text += (text.empty() ? "" : "; ") + group.type + ": " + group.cell;
  }
  return text;
}

std::vector<std::string> linesOfPage() {
  const std::string page = contentOf(QUILLON_COMPATIBILITY_PAGE);
  const size_t from = page.find(kBegin);
  const size_t to = page.find(kEnd);
  if (from == std::string::npos || to == std::string::npos) {
    return {};
  }
  const size_t table = from + std::string_view(kBegin).size();
  std::vector<std::string> lines = linesOf(page.substr(table, to - table));
  const size_t head = std::min<size_t>(2, lines.size());
  lines.erase(lines.begin(), lines.begin() + static_cast<ptrdiff_t>(head));
  return lines;
}

void writePage(const std::vector<std::string>& lines) {
  std::string page = contentOf(QUILLON_COMPATIBILITY_PAGE);
  const size_t from = page.find(kBegin) + std::string_view(kBegin).size();
  std::string table = kHead;
  for (const std::string& line : lines) {
    table += line + "\n";
  }
  page.replace(from, page.find(kEnd) - from, table);
  write(QUILLON_COMPATIBILITY_PAGE, page);
}

std::string tableLine(const std::vector<std::string>& cells) {
  std::string line = "|";
  for (const std::string& cell : cells) {
    line += " ";
    for (const char character : cell) {
      line += character == '|' ? "\\|" : std::string(1, character);
    }
    line += cell.empty() ? "|" : " |";
  }
  return line;
}

}  // namespace quillon::test
