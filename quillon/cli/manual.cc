#include "quillon/cli/manual.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cctype>
#include <string_view>

#include "quillon/cli/description.h"

namespace quillon::cli {
namespace {

// Daemons are in section 8.
std::string sectionNumberOf(const CLI::App& command) {
  return command.get_name() == "launchpad" ? "8" : "1";
}

std::string upperCase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char letter) { return static_cast<char>(std::toupper(letter)); });
  return text;
}

// Text that troff prints as it is. A line that begins with '.' or ''' would be a request.
std::string escaped(std::string_view text) {
  std::string result;
  for (const char each : text) {
    const bool startsLine = result.empty() || result.back() == '\n';
    if (startsLine && (each == '.' || each == '\'')) {
      result += "\\&";
    }
    if (each == '-' || each == '\\') {
      result += each == '-' ? "\\" : "\\e";
    }
    if (each != '\\') {
      result += each;
    }
  }
  return result;
}

std::string heading(const char* request, const std::string& title) {
  return std::string(request) + " \"" + escaped(title) + "\"\n";
}

// The first word in bold, as the name of a command or an option.
std::string synopsis(const std::string& name, const CLI::App& command) {
  return ".nf\n\\fB" + escaped(name) + "\\fR" + escaped(usageOf(command)) + "\n.fi\n";
}

std::string list(const Section& section) {
  std::string text;
  for (const Row& row : section.rows) {
    text += ".TP\n\\fB" + escaped(row.name) + "\\fR\n" + escaped(row.text) + '\n';
  }
  return text;
}

std::string footer(const CLI::App& command) {
  return command.get_footer().empty() ? ""
                                      : ".PP\n.nf\n" + escaped(command.get_footer()) + "\n.fi\n";
}

std::string sections(const CLI::App& command, const char* request) {
  std::string text;
  for (const Section& section : sectionsOf(command)) {
    text += heading(request, upperCase(section.title)) + list(section);
  }
  return text;
}

// A subcommand with its options, and those inside it.
std::string describe(const CLI::App& command, const std::string& name) {
  std::string text = heading(".SH", name) + escaped(command.get_description()) + ".\n.PP\n" +
                     synopsis(name, command) + sections(command, ".SS") + footer(command);
  for (const CLI::App* each : listedCommands(command)) {
    text += describe(*each, name + " " + each->get_name());
  }
  return text;
}

}  // namespace

std::string manualPage(const CLI::App& app, const CLI::App& command) {
  const bool isWhole = &app == &command;
  const std::string name = isWhole ? app.get_name() : app.get_name() + " " + command.get_name();
  std::string page = name;
  std::replace(page.begin(), page.end(), ' ', '-');
  std::string text = ".TH \"" + escaped(upperCase(page)) + "\" " + sectionNumberOf(command) +
                     " \"\" \"" + escaped(app.version()) + "\" \"Quillon\"\n";
  text += heading(".SH", "NAME") + escaped(page) + " \\- " + escaped(command.get_description()) +
          '\n' + heading(".SH", "SYNOPSIS") + synopsis(name, command) + sections(command, ".SH");
  if (!command.get_footer().empty()) {
    text += heading(".SH", "NOTES") + footer(command);
  }
  for (const CLI::App* each : listedCommands(command)) {
    text += isWhole ? "" : describe(*each, name + " " + each->get_name());
  }
  return text + heading(".SH", "SEE ALSO") +
         escaped(isWhole
                     ? "quillon-run(1), quillon-launch(1), quillon-launchpad(8), quillon-package(5)"
                     : "quillon(1), quillon-package(5)") +
         "\n.PP\nThe documentation of the package has a page on each topic; exit-status.md lists "
         "the exit statuses.\n";
}

}  // namespace quillon::cli
