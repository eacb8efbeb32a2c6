#include <unistd.h>

#include <array>

#include "tests/system/crash/child.h"
#include "util/log/stream_capture.h"

namespace quillon::test {
namespace {

std::string readAll(int descriptor) {
  std::string text;
  std::array<char, 4096> buffer{};
  for (ssize_t count; (count = read(descriptor, buffer.data(), buffer.size())) > 0;) {
    text.append(buffer.data(), static_cast<std::size_t>(count));
  }
  return text;
}

}  // namespace

Ending endingWithPipe(const std::function<void()>& body) {
  std::array<int, 2> ends{};
  if (pipe(ends.data()) != 0) {
    return {};
  }
  const pid_t child = start([&] {
    close(ends[0]);
    pStdErr[1] = ends[1];
    body();
  });
  close(ends[1]);
  const std::string text = readAll(ends[0]);
  close(ends[0]);
  Ending ending = endOf(child);
  ending.text = text;
  return ending;
}

}  // namespace quillon::test
