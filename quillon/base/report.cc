#include "quillon/base/report.h"

#include <algorithm>
#include <string>

namespace quillon {
namespace {

// A path or value inside a message may hold line breaks and what a terminal obeys; the report stays
// one plain line.
std::string oneLine(std::string text) {
  const auto isControl = [](unsigned char c) { return c < ' ' || c == 0x7f; };
  std::replace_if(text.begin(), text.end(), isControl, ' ');
  return text;
}

}  // namespace

std::string reportLine(const Failure& failure) {
  std::string line = "quillon: " + failure.what;
  if (!failure.remedy.empty()) line += "; " + failure.remedy;
  return oneLine(std::move(line)) + "\n";
}

int report(const Failure& failure, int descriptor) {
  const std::string line = reportLine(failure);
  // Unbuffered and in one piece, whatever else writes to the terminal.
  [[maybe_unused]] const ssize_t written = write(descriptor, line.data(), line.size());
  return failure.status;
}

}  // namespace quillon
