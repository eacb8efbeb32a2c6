#include "quillon/base/report.h"

#include <algorithm>
#include <string>

namespace quillon {

std::string oneLine(std::string text) {
  const auto isControl = [](unsigned char c) { return c < ' ' || c == 0x7f; };
  std::replace_if(text.begin(), text.end(), isControl, ' ');
  return text;
}

Failure outputFailure() {
  return {"the standard output cannot be written", "free space on its disk, or write it elsewhere"};
}

std::string reportLine(const Failure& failure) {
  std::string line = "quillon: " + failure.what;
  if (!failure.remedy.empty()) {
    line += "; " + failure.remedy;
  }
  return oneLine(std::move(line)) + "\n";
}

int report(const Failure& failure, int descriptor) {
  const std::string line = reportLine(failure);
  // One unbuffered write, so that other output to the terminal does not split the line.
  [[maybe_unused]] const ssize_t written = write(descriptor, line.data(), line.size());
  return failure.status;
}

}  // namespace quillon
