#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>

#include "quillon/cli/front/plain_launch.h"
#include "quillon/cli/launch_parser.h"
#include "tests/support/scoped_variable.h"

namespace quillon::cli {
namespace {

using test::ScopedVariable;

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

// Expects that both parsers find this device root.
void expectDevice(const Arguments& arguments, const std::string& device) {
  std::optional<LaunchOptions> plain = parsePlainly(arguments);
  LaunchOptions full = parseFully(arguments);
  ASSERT_TRUE(plain);
  EXPECT_EQ(full.device, device);
  expectEqual(*plain, full);
}

TEST(LaunchOptionsTable, BothParsersTakeTheDeviceFromTheOptionThenFromTheVariable) {
  const ScopedVariable variable("QUILLON_DEVICE", "/of/variable");
  expectDevice({"clock"}, "/of/variable");
  expectDevice({"clock", "--device", "/of/option"}, "/of/option");
}

TEST(LaunchOptionsTable, BothParsersTakeTheUsersDeviceIfTheVariableIsEmpty) {
  const ScopedVariable variable("QUILLON_DEVICE", "");
  const ScopedVariable home("HOME", "/home/user");
  const ScopedVariable data("XDG_DATA_HOME", "relative");
  expectDevice({"clock"}, "/home/user/.local/share/quillon/device");
  setenv("XDG_DATA_HOME", "/of/data", 1);
  expectDevice({"clock"}, "/of/data/quillon/device");
}

TEST(LaunchOptionsTable, BothParsersNeedADeviceWithoutAHome) {
  const ScopedVariable variable("QUILLON_DEVICE", "");
  const ScopedVariable home("HOME", "");
  const ScopedVariable data("XDG_DATA_HOME", "");
  EXPECT_FALSE(parsePlainly({"clock"}));
  EXPECT_THROW(parseFully({"clock"}), CLI::RequiredError);
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
