#include "quillon/cli/parse_failure.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cctype>
#include <numeric>

#include "quillon/cli/description.h"
#include "quillon/cli/device_option.h"
#include "quillon/cli/run_command.h"

namespace quillon::cli {
namespace {

// The innermost command that the command line names.
const CLI::App& commandOf(const CLI::App& app) {
  const auto named = app.get_subcommands();
  return named.empty() ? app : commandOf(*named.back());
}

// "quillon package install"
std::string fullName(const CLI::App& command) {
  const CLI::App* const parent = command.get_parent();
  return (parent == nullptr ? "" : fullName(*parent) + " ") + command.get_name();
}

std::string seeHelp(const CLI::App& command) { return "see " + fullName(command) + " --help"; }

// The commands below `command` that its help lists.
std::vector<std::string> commandsOf(const CLI::App& command) {
  std::vector<std::string> names;
  for (const CLI::App* each : listedCommands(command)) {
    names.push_back(each->get_name());
  }
  return names;
}

std::vector<std::string> optionsOf(const CLI::App& command) {
  std::vector<std::string> names;
  for (const CLI::Option* option : command.get_options()) {
    for (const std::string& name : option->get_lnames()) {
      names.push_back("--" + name);
    }
  }
  return names;
}

std::string join(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) {
    text += (text.empty() ? "" : ", ") + word;
  }
  return text;
}

Failure unknownOption(const CLI::App& command, const std::string& word) {
  const std::string name = word.substr(0, word.find('='));
  const std::string similar = similarWord(name, optionsOf(command));
  std::string remedy = similar.empty() ? seeHelp(command) : "did you mean " + similar + "?";
  if (similar.empty() && takesProgramArguments(command)) {
    const bool isRun = command.get_name() == kRunCommand;
    remedy += std::string(", or write the options of the application after ") +
              (isRun ? "its assembly" : "--");
  }
  return {"'" + fullName(command) + "' has no option '" + name + "'", remedy, kUsage};
}

Failure unknownCommand(const CLI::App& command, const std::string& word) {
  const std::string similar = similarWord(word, commandsOf(command));
  return {"'" + fullName(command) + "' has no command '" + word + "'",
          similar.empty() ? seeHelp(command)
                          : "did you mean '" + fullName(command) + " " + similar + "'?",
          kUsage};
}

Failure unknownArgument(const CLI::App& command, const std::string& word) {
  return {"'" + fullName(command) + "' does not take the argument '" + word + "'",
          takesProgramArguments(command) ? "write the arguments of the application after --"
                                         : seeHelp(command),
          kUsage};
}

Failure unknownWord(const CLI::App& command, const std::string& word) {
  if (word.size() > 1 && word.front() == '-') {
    return unknownOption(command, word);
  }
  return commandsOf(command).empty() ? unknownArgument(command, word)
                                     : unknownCommand(command, word);
}

const CLI::Option* missingOption(const CLI::App& command) {
  for (const CLI::Option* option : command.get_options()) {
    if (option->get_required() && option->count() == 0) {
      return option;
    }
  }
  return nullptr;
}

Failure missing(const CLI::App& command, const CLI::Option& option) {
  if (option.check_name(kDeviceOption)) {
    return noDevice();
  }
  std::string description = option.get_description();
  description[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(description[0])));
  return {option.get_name(option.get_positional()) + " is required: " + description,
          seeHelp(command), kUsage};
}

// The number of letters to insert, remove, replace or exchange with the next one to make one word
// from the other.
std::size_t editDistance(const std::string& one, const std::string& other) {
  std::vector<std::size_t> beforeLast;
  std::vector<std::size_t> last(other.size() + 1);
  std::iota(last.begin(), last.end(), 0);
  for (std::size_t i = 1; i <= one.size(); ++i) {
    std::vector<std::size_t> row = {i};
    for (std::size_t j = 1; j <= other.size(); ++j) {
      const bool isSame = one[i - 1] == other[j - 1];
      std::size_t best = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (isSame ? 0 : 1)});
      if (i > 1 && j > 1 && one[i - 1] == other[j - 2] && one[i - 2] == other[j - 1]) {
        best = std::min(best, beforeLast[j - 2] + 1);
      }
      row.push_back(best);
    }
    beforeLast = std::move(last);
    last = std::move(row);
  }
  return last.back();
}

}  // namespace

Failure parseFailure(const CLI::App& app, const CLI::ParseError& error) {
  const CLI::App& command = commandOf(app);
  if (const auto words = command.remaining(); !words.empty() && !command.get_allow_extras()) {
    return unknownWord(command, words.front());
  }
  const bool isIncomplete = dynamic_cast<const CLI::RequiredError*>(&error) != nullptr;
  if (const CLI::Option* option = missingOption(command); isIncomplete && option != nullptr) {
    return missing(command, *option);
  }
  if (isIncomplete && command.get_require_subcommand_min() > 0) {
    return {"'" + fullName(command) + "' needs a command: " + join(commandsOf(command)),
            seeHelp(command), kUsage};
  }
  return {error.what(), seeHelp(command), kUsage};
}

bool takesProgramArguments(const CLI::App& command) {
  const std::string& name = command.get_name();
  return name == "launch" || name == kRunCommand || name == "shell";
}

std::string similarWord(const std::string& word, const std::vector<std::string>& known) {
  constexpr std::size_t kLettersPerMistake = 3;
  const std::size_t limit = 1 + word.size() / kLettersPerMistake;
  std::string similar;
  std::size_t least = limit;
  for (const std::string& each : known) {
    const std::size_t distance = editDistance(word, each);
    const bool isBeginning = word.size() >= kLettersPerMistake && each.starts_with(word);
    if (isBeginning || (distance < least && distance < each.size())) {
      similar = each;
      least = isBeginning ? 0 : distance;
    }
  }
  return similar;
}

}  // namespace quillon::cli
