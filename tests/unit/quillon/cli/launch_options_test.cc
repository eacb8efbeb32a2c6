#include <gmock/gmock.h>

#include <algorithm>
#include <type_traits>

#include "quillon/cli/launch_parser.h"
#include "quillon/cli/plain_launch.h"

namespace quillon::cli {
namespace {

using Arguments = std::vector<std::string>;
using host::LaunchOptions;

std::optional<LaunchOptions> parsePlainly(const Arguments& arguments) {
  std::vector<std::string_view> words = {"quillon", "launch"};
  words.insert(words.end(), arguments.begin(), arguments.end());
  return plainLaunch(words);
}

LaunchOptions parseFully(Arguments arguments) {
  CLI::App command;
  LaunchOptions options;
  addLaunchOptions(command, options);
  std::reverse(arguments.begin(), arguments.end());
  command.parse(std::move(arguments));
  return options;
}

// Compares the members of all options.
void expectEqual(LaunchOptions& one, LaunchOptions& other) {
  for (const LaunchOption& option : kLaunchOptions) {
    const bool isEqual =
        std::visit([&](auto member) { return memberOf(one, member) == memberOf(other, member); },
                   option.member);
    EXPECT_TRUE(isEqual) << option.name;
  }
}

bool isSet(LaunchOptions& options, const LaunchOption& option) {
  return withMember(option, options, [](auto& member) {
    return member != std::remove_reference_t<decltype(member)>();
  });
}

bool isFlag(const LaunchOption& option) {
  return std::holds_alternative<bool LaunchOptions::*>(option.member);
}

bool isSwitch(const LaunchOption& option) {
  return std::holds_alternative<std::optional<bool> host::RuntimeSettings::*>(option.member);
}

// A command line with all required options and with `tested`.
Arguments commandLineWith(const LaunchOption& tested) {
  Arguments arguments;
  for (const LaunchOption& option : kLaunchOptions) {
    if (!option.isRequired && option.name != tested.name) {
      continue;
    }
    arguments.emplace_back(option.name);
    if (isSwitch(option)) {
      arguments.emplace_back("off");
    } else if (!isFlag(option)) {
      arguments.emplace_back("/value/of" + std::string(option.name));
    }
  }
  return arguments;
}

TEST(LaunchOptionsTable, BothParsersAgreeOnEveryOptionOfTheFastPath) {
  for (const LaunchOption& option : kLaunchOptions) {
    SCOPED_TRACE(option.name);
    const Arguments arguments = commandLineWith(option);
    std::optional<LaunchOptions> plain = parsePlainly(arguments);
    ASSERT_EQ(plain.has_value(), option.parser == Parser::kBoth);
    if (!plain) {
      continue;
    }
    LaunchOptions full = parseFully(arguments);
    EXPECT_TRUE(isSet(full, option));
    expectEqual(*plain, full);
  }
}

TEST(LaunchOptionsTable, BothParsersAgreeOnPositionalArguments) {
  const Arguments arguments = {"--device", "/d", "clock", "--raw"};
  std::optional<LaunchOptions> plain = parsePlainly(arguments);
  ASSERT_TRUE(plain);
  LaunchOptions full = parseFully(arguments);
  EXPECT_EQ(full.appId, "clock");
  expectEqual(*plain, full);
}

TEST(LaunchOptionsTable, TheFullParserAcceptsTheOtherOptions) {
  for (const LaunchOption& option : kLaunchOptions) {
    SCOPED_TRACE(option.name);
    Arguments arguments = commandLineWith(option);
    if (option.name == kJsonOption) {
      arguments.emplace_back(kPlanOption);
    }
    LaunchOptions full = parseFully(arguments);
    EXPECT_TRUE(isSet(full, option));
  }
}

}  // namespace
}  // namespace quillon::cli
