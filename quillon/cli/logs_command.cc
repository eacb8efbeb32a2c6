#include "quillon/cli/logs_command.h"

#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <iostream>
#include <memory>
#include <thread>

#include "quillon/base/files.h"
#include "quillon/base/report.h"
#include "quillon/cli/application_log.h"
#include "quillon/cli/colour_filter.h"
#include "quillon/cli/command.h"
#include "quillon/cli/device_option.h"
#include "quillon/cli/json_output.h"

namespace quillon::cli {
namespace {

struct LogsRequest {
  std::filesystem::path device;
  std::string id;
  bool follow = false;
  bool json = false;
};

void listLogs(const LogsRequest& request) {
  const auto ids = valueOf(applicationsWithLog(request.device));
  if (request.json) {
    return printJson(Json(ids));
  }
  for (const std::string& id : ids) {
    std::cout << oneLine(id) << '\n';
  }
}

// Whether the name of the open file belongs to another file now.
bool isReplaced(const Descriptor& file, const Descriptor& current) {
  struct stat one {};
  struct stat other {};
  return fstat(file.get(), &one) == 0 && fstat(current.get(), &other) == 0 &&
         one.st_ino != other.st_ino;
}

// Prints a log in blocks, since it may be larger than the memory.
class LogPrinter {
 public:
  // Prints the file from its current offset to its end. Ends the command if that fails.
  void printRest(const Descriptor& file) {
    constexpr std::size_t kBlock = std::size_t{64} << 10;
    std::string block;
    do {
      block.resize(kBlock);
      const ssize_t length = read(file.get(), block.data(), block.size());
      block.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
      if (!writeAll(STDOUT_FILENO, isTerminal_ ? block : withoutColours_(block))) {
        endCommand(report(outputFailure()));
      }
    } while (!block.empty());
  }

 private:
  const bool isTerminal_ = isatty(STDOUT_FILENO) != 0;
  ColourFilter withoutColours_;
};

// Prints what is added until a signal ends the process.
[[noreturn]] void follow(const LogsRequest& request, Descriptor file) {
  constexpr std::chrono::milliseconds kPause(200);
  LogPrinter printer;
  for (;;) {
    printer.printRest(file);
    std::this_thread::sleep_for(kPause);
    if (auto current = openLog(request.device, request.id); current && isReplaced(file, *current)) {
      printer.printRest(file);
      file = *std::move(current);
    }
  }
}

void printLog(const LogsRequest& request) {
  Descriptor file = valueOf(openLog(request.device, request.id));
  if (request.follow) {
    follow(request, std::move(file));
  }
  LogPrinter().printRest(file);
}

}  // namespace

void addLogsCommand(CLI::App& app) {
  const auto request = std::make_shared<LogsRequest>();
  CLI::App* const command = app.add_subcommand("logs", "Print the log of a detached application");
  addDeviceOption(*command, request->device);
  CLI::Option* const id =
      command->add_option("APPID", request->id, "Application id; default: list the logs");
  command->add_flag("--follow", request->follow, "Print new lines until interrupted")->needs(id);
  command->add_flag(kJsonFlag, request->json, kJsonHelp)->excludes(id);
  command->callback([request] { request->id.empty() ? listLogs(*request) : printLog(*request); });
}

}  // namespace quillon::cli
