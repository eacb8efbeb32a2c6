#include "quillon/cli/description.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <functional>

#include "quillon/cli/device_option.h"
#include "quillon/cli/parse_failure.h"
#include "quillon/cli/run_command.h"

namespace quillon::cli {
namespace {

bool isRepeatable(const CLI::Option& option) {
  return option.get_expected_max() >= CLI::detail::expected_max_vector_size;
}

std::string textOf(const CLI::Option& option) {
  std::string text = option.get_description();
  if (option.get_positional() && !option.get_lnames().empty()) {
    text += "; or --" + option.get_lnames().front();
  }
  if (!option.get_positional() && option.get_required() && !option.check_name(kDeviceOption)) {
    text += "; required";
  }
  if (!option.get_default_str().empty()) {
    text += "; default: " + option.get_default_str();
  }
  if (!option.get_positional() && isRepeatable(option)) {
    text += "; may be repeated";
  }
  return text;
}

Row rowOf(const CLI::Option& option) {
  if (option.get_positional()) {
    return {placeholderOf(option) + (isRepeatable(option) ? "..." : ""), textOf(option)};
  }
  const std::string name = CLI::detail::find_and_replace(option.get_name(false, true), ",", ", ");
  const std::string value = placeholderOf(option);
  return {value.empty() ? name : name + " " + value, textOf(option)};
}

Section sectionOf(const CLI::App& command, std::string title,
                  const std::function<bool(const CLI::Option*)>& contains) {
  Section section{std::move(title), {}};
  for (const CLI::Option* option : command.get_options(contains)) {
    section.rows.push_back(rowOf(*option));
  }
  return section;
}

bool isHelp(const CLI::App& command, const CLI::Option* option) {
  return option == command.get_help_ptr();
}

// The options of one group, with --help at the end.
Section optionsOf(const CLI::App& command, const std::string& group) {
  const auto isInGroup = [&](const CLI::Option* option) {
    return !option->get_positional() && option->get_group() == group && !isHelp(command, option);
  };
  Section section = sectionOf(command, group, isInGroup);
  const CLI::Option* const help = command.get_help_ptr();
  if (help != nullptr && help->get_group() == group) {
    section.rows.push_back(rowOf(*help));
  }
  return section;
}

std::vector<const CLI::App*> commandsOf(const CLI::App& command, const std::string& group) {
  return command.get_subcommands(
      [&](const CLI::App* each) { return !group.empty() && each->get_group() == group; });
}

std::vector<std::string> commandGroupsOf(const CLI::App& command) {
  std::vector<std::string> groups;
  for (const CLI::App* each : command.get_subcommands(nullptr)) {
    if (std::find(groups.begin(), groups.end(), each->get_group()) == groups.end()) {
      groups.push_back(each->get_group());
    }
  }
  return groups;
}

}  // namespace

std::vector<const CLI::App*> listedCommands(const CLI::App& command) {
  return command.get_subcommands([](const CLI::App* each) { return !each->get_group().empty(); });
}

// A type name may end with the description of a check.
std::string placeholderOf(const CLI::Option& option) {
  if (option.get_positional()) {
    return option.get_name(true);
  }
  if (option.get_items_expected_max() == 0) {
    return {};
  }
  const std::string type = option.get_type_name();
  const std::string name = type.substr(0, type.find(':'));
  return name == "UINT" || name == "INT" || name == "FLOAT" ? "N" : name;
}

std::vector<Section> sectionsOf(const CLI::App& command) {
  std::vector<Section> sections;
  for (const std::string& group : commandGroupsOf(command)) {
    Section section{group == "Subcommands" ? "Commands" : group, {}};
    for (const CLI::App* each : commandsOf(command, group)) {
      section.rows.push_back({each->get_name(), each->get_description()});
    }
    sections.push_back(std::move(section));
  }
  sections.push_back(sectionOf(command, "Arguments", [](const CLI::Option* option) {
    return option->get_positional() && !option->get_group().empty();
  }));
  for (const std::string& group : command.get_groups()) {
    sections.push_back(group.empty() ? Section() : optionsOf(command, group));
  }
  std::erase_if(sections, [](const Section& section) { return section.rows.empty(); });
  return sections;
}

std::string usageOf(const CLI::App& command) {
  std::string usage;
  if (command.get_options().size() > 1) {  // more than --help
    usage += " [OPTIONS]";
  }
  for (const CLI::Option* option : command.get_options()) {
    if (option->get_positional()) {
      const std::string word = rowOf(*option).name;
      usage += option->get_required() ? " " + word : " [" + word + "]";
    }
  }
  if (!command.get_subcommands(nullptr).empty()) {
    usage += command.get_require_subcommand_min() > 0 ? " COMMAND" : " [COMMAND]";
  }
  if (takesProgramArguments(command)) {
    usage += command.get_name() == kRunCommand ? " [ARGUMENTS]" : " [-- ARGUMENTS]";
  }
  return usage;
}

}  // namespace quillon::cli
