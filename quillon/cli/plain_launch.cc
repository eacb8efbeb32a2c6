#include "quillon/cli/plain_launch.h"

#include <string>
#include <utility>

namespace quillon::cli {
namespace {

using host::LaunchOptions;

constexpr std::string_view kCommand = "launch";
constexpr std::string_view kArgumentsFollow = "--";

// What an option takes. The parser has more to say about one that is empty, looks like an option,
// or is its sign for the end of a subcommand.
bool isPlainValue(std::string_view text) {
  return !text.empty() && text.front() != '-' && text != "++";
}

class Reader {
 public:
  using Iterator = std::vector<std::string_view>::const_iterator;
  Reader(Iterator next, Iterator end) : next_(next), end_(end) {}

  std::optional<LaunchOptions> read();

 private:
  bool readOne(std::string_view argument);
  bool take(std::string_view& value);
  bool takeOnce(std::optional<std::string>& value);
  bool takeId(std::string_view id);
  static bool raise(bool& flag) { return !std::exchange(flag, true); }

  Iterator next_;
  const Iterator end_;
  LaunchOptions options_;
};

bool Reader::take(std::string_view& value) {
  if (next_ == end_ || !isPlainValue(*next_)) return false;
  value = *next_++;
  return true;
}

bool Reader::takeOnce(std::optional<std::string>& value) {
  std::string_view text;
  if (value || !take(text)) return false;
  value = text;
  return true;
}

bool Reader::takeId(std::string_view id) {
  if (!options_.appId.empty()) return false;
  options_.appId = id;
  return true;
}

bool Reader::readOne(std::string_view argument) {
  std::string_view value;
  if (isPlainValue(argument)) return takeId(argument);
  if (argument == "--id") return take(value) && takeId(value);
  if (argument == "--device") {
    if (!options_.device.empty() || !take(value)) return false;
    options_.device = value;
    return true;
  }
  if (argument == "--type") return takeOnce(options_.type);
  if (argument == "--path") return takeOnce(options_.exec);
  if (argument == "--raw") return raise(options_.raw);
  if (argument == "--direct") return raise(options_.direct);
  return argument == "--preload" && raise(options_.preload);
}

std::optional<LaunchOptions> Reader::read() {
  while (next_ != end_) {
    const std::string_view argument = *next_++;
    if (argument == kArgumentsFollow) {
      options_.arguments.assign(next_, end_);
      break;
    }
    if (!readOne(argument)) return std::nullopt;
  }
  if (options_.device.empty() || options_.appId.empty()) return std::nullopt;
  return std::move(options_);
}

}  // namespace

std::optional<host::LaunchOptions> plainLaunch(const std::vector<std::string_view>& arguments) {
  if (arguments.size() < 2 || arguments[1] != kCommand) return std::nullopt;
  return Reader(arguments.begin() + 2, arguments.end()).read();
}

}  // namespace quillon::cli
