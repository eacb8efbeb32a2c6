#include "util/log/error_file.h"

#include <unistd.h>

#include <array>
#include <cstdio>
#include <ctime>
#include <memory>

#include "util/log/log.h"

std::string& errorLogFile = *new std::string;

namespace {

constexpr char kNamePattern[] = "/tmp/dotnet_error.%d.%d.log";
constexpr std::size_t kLongestName = 4096;

std::string nameForThisProcess() {
  std::array<char, kLongestName> name{};
  std::snprintf(name.data(), name.size(), kNamePattern, static_cast<int>(getpid()),
                static_cast<int>(time(nullptr)));
  return name.data();
}

}  // namespace

void writeStringTofile(std::string_view text) {
  QLOG_SCOPE();
  if (errorLogFile.empty()) {
    errorLogFile = nameForThisProcess();
  }
  const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(errorLogFile.c_str(), "ae"),
                                                   std::fclose);
  if (file != nullptr) {
    std::fwrite(text.data(), 1, text.size(), file.get());
    std::fputc('\n', file.get());
  }
}
