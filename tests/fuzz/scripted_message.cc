#include "tests/fuzz/scripted_message.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <utility>
#include <vector>

#include "quillon/base/record.h"
#include "quillon/launchpad/protocol/sealed_memory.h"

namespace quillon::fuzz {
namespace {

constexpr std::uint64_t kMaxLimits = 64;

std::uint64_t numberOf(std::string_view text) {
  std::uint64_t number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

// Writes the fields of a script.
class Script {
 public:
  void run(std::string_view script) {
    for (Input input(script); !input.atEnd();) {
      const std::string_view line = input.line();
      if (!line.empty()) {
        apply(line[0], line.substr(std::min<std::size_t>(line.size(), 2)));
      }
    }
    while (levels_.size() > 1) {
      close(levels_.back().isList ? ']' : ')');
    }
  }

  launchpad::Message message() {
    std::string bytes = levels_.front().writer.take();
    launchpad::Message message{kind_, {}, {}};
    if (fileBegin_ != std::string::npos) {
      const std::string_view inFile = std::string_view(bytes).substr(fileBegin_);
      message.descriptors.push_back(launchpad::makeSealedMemory(inFile));
      bytes.resize(fileBegin_);
    }
    message.bytes = launchpad::SensitiveBytes(bytes);
    while (message.descriptors.size() < descriptors_) {
      message.descriptors.emplace_back(dup(STDIN_FILENO));
    }
    return message;
  }

 private:
  // The fields of the message, or those between two brackets.
  struct Level {
    RecordWriter writer;
    bool isList = false;
    std::uint64_t fields = 0;
  };

  void apply(char command, std::string_view argument) {
    switch (command) {
      case 'k':
        kind_ = static_cast<launchpad::MessageKind>(numberOf(argument));
        return;
      case 'd':
        descriptors_ = std::min<std::uint64_t>(numberOf(argument), launchpad::kMaxDescriptors);
        return;
      case 'm':
        fileBegin_ = levels_.front().writer.bytes().size();
        return;
      case '(':
      case '[':
        levels_.push_back({{}, command == '['});
        return;
      case ')':
      case ']':
        return close(command);
      default:
        return write(command, argument);
    }
  }

  void write(char command, std::string_view argument) {
    Level& level = levels_.back();
    ++level.fields;
    if (command == 'n') {
      level.writer.number(numberOf(argument));
    } else if (command == 't') {
      level.writer.text(argument);
    } else if (command == 'r') {
      level.writer.append(argument);
    } else if (command == 'l') {
      const std::uint64_t count = std::min(numberOf(argument), kMaxLimits);
      level.writer.text(std::string(count * sizeof(rlimit), '\1'));
    } else {
      --level.fields;
    }
  }

  void close(char bracket) {
    if (levels_.size() < 2 || levels_.back().isList != (bracket == ']')) {
      return;
    }
    const std::uint64_t fields = levels_.back().fields;
    const std::string inner = levels_.back().writer.take();
    levels_.pop_back();
    ++levels_.back().fields;
    RecordWriter& outer = levels_.back().writer;
    bracket == ']' ? outer.number(fields).append(inner) : outer.text(inner);
  }

  launchpad::MessageKind kind_{};
  std::uint64_t descriptors_ = 0;
  std::size_t fileBegin_ = std::string::npos;
  std::vector<Level> levels_ = std::vector<Level>(1);
};

}  // namespace

launchpad::Message scriptedMessage(std::string_view script) {
  Script all;
  all.run(script);
  return all.message();
}

}  // namespace quillon::fuzz
