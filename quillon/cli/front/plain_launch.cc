#include "quillon/cli/front/plain_launch.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <type_traits>
#include <utility>

#include "quillon/cli/front/launch_options_table.h"

namespace quillon::cli {
namespace {

using host::LaunchOptions;

constexpr std::string_view kCommand = "launch";
constexpr std::string_view kArgumentsFollow = "--";

// The full parser treats an empty value, one that looks like an option, and "++", its mark for the
// end of a subcommand, in special ways.
bool isPlainValue(std::string_view text) {
  return !text.empty() && text.front() != '-' && text != "++";
}

const LaunchOption* findOption(std::string_view argument) {
  const bool isPositional = isPlainValue(argument);
  const auto* const found = std::find_if(
      std::begin(kLaunchOptions), std::end(kLaunchOptions), [&](const LaunchOption& option) {
        return option.parser == Parser::kBoth &&
               (isPositional ? *option.positional != '\0' : option.name == argument);
      });
  return found == std::end(kLaunchOptions) ? nullptr : found;
}

class Reader {
 public:
  using Iterator = std::vector<std::string_view>::const_iterator;
  Reader(Iterator next, Iterator end) : next_(next), end_(end) {}

  std::optional<LaunchOptions> read();

 private:
  bool readOne();
  bool hasRequired();

  // Each option may be given once.
  bool set(bool& flag) {
    ++next_;
    return !std::exchange(flag, true);
  }
  template <typename Value>
  bool set(Value& value) {
    if constexpr (std::is_assignable_v<Value&, std::string_view>) {
      if (!isPlainValue(*next_)) {
        ++next_;  // the option's name
      }
      if (value != Value() || next_ == end_ || !isPlainValue(*next_)) {
        return false;
      }
      value = *next_++;
      return true;
    }
    return false;
  }

  Iterator next_;
  const Iterator end_;
  LaunchOptions options_;
};

bool Reader::readOne() {
  const LaunchOption* const option = findOption(*next_);
  return option != nullptr &&
         withMember(*option, options_, [this](auto& member) { return set(member); });
}

bool Reader::hasRequired() {
  return std::all_of(
      std::begin(kLaunchOptions), std::end(kLaunchOptions),
      [this](const LaunchOption& option) { return !option.isRequired || isSet(option, options_); });
}

std::optional<LaunchOptions> Reader::read() {
  while (next_ != end_ && *next_ != kArgumentsFollow) {
    if (!readOne()) {
      return std::nullopt;
    }
  }
  if (next_ != end_) {
    options_.arguments.assign(next_ + 1, end_);
  }
  applyDefaults(options_);
  if (!hasRequired()) {
    return std::nullopt;
  }
  return std::move(options_);
}

}  // namespace

std::optional<host::LaunchOptions> plainLaunch(const std::vector<std::string_view>& arguments) {
  if (arguments.size() < 2 || arguments[1] != kCommand) {
    return std::nullopt;
  }
  return Reader(arguments.begin() + 2, arguments.end()).read();
}

}  // namespace quillon::cli
