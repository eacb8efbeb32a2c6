#include "quillon/cli/help.h"

#include <algorithm>
#include <vector>

#include "quillon/cli/description.h"

namespace quillon::cli {
namespace {

std::size_t widthOf(const std::vector<Section>& sections) {
  std::size_t width = 0;
  for (const Section& section : sections) {
    for (const Row& row : section.rows) {
      width = std::max(width, row.name.size());
    }
  }
  return width;
}

}  // namespace

std::string HelpFormatter::make_help(const CLI::App* command, std::string name,
                                     CLI::AppFormatMode /*mode*/) const {
  std::string help = command->get_description() + "\n\nusage: " + name + usageOf(*command) + '\n';
  const std::vector<Section> sections = sectionsOf(*command);
  const std::size_t width = widthOf(sections);
  for (const Section& section : sections) {
    help += '\n' + section.title + ":\n";
    for (const Row& row : section.rows) {
      help += "  " + row.name + std::string(width - row.name.size() + 2, ' ') + row.text + '\n';
    }
  }
  if (!command->get_footer().empty()) {
    help += '\n' + command->get_footer() + '\n';
  }
  return help;
}

}  // namespace quillon::cli
