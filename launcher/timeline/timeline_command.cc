#include "launcher/timeline/timeline_command.h"

#include <memory>

#include "launcher/timeline/timed_launch.h"
#include "tools/command.h"
#include "tools/exit_status.h"
#include "tools/report.h"

namespace quillon::launcher {
namespace {

struct Request {
  std::filesystem::path trace;
  std::filesystem::path page;
};

}  // namespace

void addTimelineCommand(CLI::App& app) {
  CLI::App* const command =
      app.add_subcommand("timeline", "Picture a trace that QUILLON_TRACE wrote");
  const auto request = std::make_shared<Request>();
  command->add_option("TRACE", request->trace, "The trace")->required()->type_name("FILE");
  command->add_option("PAGE", request->page, "HTML page to write")->required()->type_name("FILE");
  command->callback([request] {
    const std::string title = request->trace.filename().string();
    const auto written = writeTimelinePage(request->trace, request->page, title);
    if (!written) endCommand(report(written.error(), kServiceFailed));
  });
}

}  // namespace quillon::launcher
