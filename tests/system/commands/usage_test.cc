// What the program answers to command lines that are wrong.
#include <gmock/gmock.h>

#include <ostream>

#include "quillon/base/exit_status.h"
#include "tests/support/program.h"

namespace quillon::test {
namespace {

using Words = std::vector<std::string>;

// Runs the program with a device root that does not exist.
Finished quillon(Words words) {
  words.insert(words.begin(), QUILLON_COMMAND);
  return run(words, {{"QUILLON_DEVICE", "/no/such/root"}});
}

struct Wrong {
  Words words;
  std::string message;
};

void PrintTo(const Wrong& wrong, std::ostream* out) { *out << wrong.message; }

class WrongCommandLine : public ::testing::TestWithParam<Wrong> {};

TEST_P(WrongCommandLine, IsAnsweredWithOneLine) {
  const Finished refused = quillon(GetParam().words);
  EXPECT_EQ(refused.status, kUsage);
  EXPECT_EQ(refused.err, "quillon: " + GetParam().message + "\n");
  EXPECT_EQ(refused.out, "");
}

INSTANTIATE_TEST_SUITE_P(
    Commands, WrongCommandLine,
    ::testing::Values(
        Wrong{{"lanch"}, "'quillon' has no command 'lanch'; did you mean 'quillon launch'?"},
        Wrong{{"frobnicate"}, "'quillon' has no command 'frobnicate'; see quillon --help"},
        Wrong{
            {"package", "installl", "x"},
            "'quillon package' has no command 'installl'; did you mean 'quillon package install'?"},
        Wrong{{"partnre"}, "'quillon' has no command 'partnre'; did you mean 'quillon partner'?"},
        Wrong{{"partner", "sing"},
              "'quillon partner' has no command 'sing'; did you mean 'quillon partner sign'?"},
        Wrong{{"zone"},
              "'quillon zone' needs a command: start, stop, list; see quillon zone --help"},
        // An internal command is not suggested.
        Wrong{{"launchpad", "workr"},
              "'quillon launchpad' has no command 'workr'; see quillon launchpad --help"}));

INSTANTIATE_TEST_SUITE_P(
    Options, WrongCommandLine,
    ::testing::Values(
        Wrong{{"--versoin"}, "'quillon' has no option '--versoin'; did you mean --version?"},
        Wrong{{"launch", "clock", "--devcie=/x"},
              "'quillon launch' has no option '--devcie'; did you mean --device?"},
        Wrong{{"package", "list", "--colour"},
              "'quillon package list' has no option '--colour'; see quillon package list --help"},
        Wrong{{"launch", "clock", "--tiered-pgo", "no"},
              "--tiered-pgo: 'no' is neither on nor off; see quillon launch --help"}));

INSTANTIATE_TEST_SUITE_P(
    Arguments, WrongCommandLine,
    ::testing::Values(
        Wrong{{"launch"},
              "APPID is required: id of an installed application; see quillon launch --help"},
        Wrong{{"launch", "clock", "12"},
              "'quillon launch' does not take the argument '12'; write the arguments of the "
              "application after --"},
        Wrong{{"launch", "clock", "--port"},
              "'quillon launch' has no option '--port'; see quillon launch --help, or write the "
              "options of the application after --"},
        Wrong{
            {"run", "--colour"},
            "'quillon run' has no option '--colour'; see quillon run --help, or write the options "
            "of the application after its assembly"},
        Wrong{
            {"config", "get", "a", "b"},
            "'quillon config get' does not take the argument 'b'; see quillon config get --help"}));

}  // namespace
}  // namespace quillon::test
