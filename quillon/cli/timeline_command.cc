#include "quillon/cli/timeline_command.h"

#include <memory>

#include "quillon/cli/command.h"
#include "quillon/timeline/timed_launch.h"

namespace quillon::cli {
namespace {

struct Request {
  std::filesystem::path trace;
  std::filesystem::path page;
};

}  // namespace

void addTimelineCommand(CLI::App& app) {
  CLI::App* const command =
      app.add_subcommand("timeline", "Draw a trace of QUILLON_TRACE as an HTML page");
  const auto request = std::make_shared<Request>();
  command->add_option("TRACE", request->trace, "Trace file")->required()->type_name("FILE");
  command->add_option("PAGE", request->page, "HTML page to write")->required()->type_name("FILE");
  command->callback([request] {
    const std::string title = request->trace.filename().string();
    valueOf(timeline::writeTimelinePage(request->trace, request->page, title));
  });
}

}  // namespace quillon::cli
