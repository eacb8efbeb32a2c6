#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>

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
    EXPECT_TRUE(isSet(option, full));
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

TEST(LaunchOptionsTable, BothParsersTakeTheDeviceFromTheOptionThenFromTheVariable) {
  setenv("QUILLON_DEVICE", "/of/variable", 1);
  const std::vector<std::pair<Arguments, std::string>> cases = {
      {{"clock"}, "/of/variable"}, {{"clock", "--device", "/of/option"}, "/of/option"}};
  for (const auto& [arguments, device] : cases) {
    std::optional<LaunchOptions> plain = parsePlainly(arguments);
    LaunchOptions full = parseFully(arguments);
    ASSERT_TRUE(plain);
    EXPECT_EQ(full.device, device);
    expectEqual(*plain, full);
  }
  unsetenv("QUILLON_DEVICE");
}

TEST(LaunchOptionsTable, BothParsersNeedADeviceWithoutTheVariableOrIfItIsEmpty) {
  for (const bool isEmpty : {false, true}) {
    isEmpty ? setenv("QUILLON_DEVICE", "", 1) : unsetenv("QUILLON_DEVICE");
    EXPECT_FALSE(parsePlainly({"clock"}));
    EXPECT_THROW(parseFully({"clock"}), CLI::RequiredError);
  }
  unsetenv("QUILLON_DEVICE");
}

TEST(LaunchOptionsTable, TheFullParserAcceptsTheOtherOptions) {
  for (const LaunchOption& option : kLaunchOptions) {
    SCOPED_TRACE(option.name);
    Arguments arguments = commandLineWith(option);
    if (option.name == kJsonOption) {
      arguments.emplace_back(kPlanOption);
    }
    LaunchOptions full = parseFully(arguments);
    EXPECT_TRUE(isSet(option, full));
  }
}

}  // namespace
}  // namespace quillon::cli
