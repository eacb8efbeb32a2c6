#include "tests/fuzz/line_mutator.h"

#include <algorithm>
#include <cstddef>
#include <random>
#include <utility>

#include "tests/fuzz/target.h"

namespace quillon::fuzz {
namespace {

using Lines = std::vector<std::string>;
using Position = Lines::difference_type;

constexpr std::size_t kMaxChanges = 4;

// The position of a line's value.
std::size_t valueIn(std::string_view line) {
  const std::size_t at = std::min(line.find('='), line.size());
  return std::min(at < line.size() ? at + 1 : line.find(' '), line.size());
}

class Mutation {
 public:
  Mutation(std::string_view input, const Lines& grammar, std::uint32_t seed)
      : lines_(linesOf(input)), grammar_(grammar), random_(seed) {}

  Lines result() {
    for (std::size_t changes = 1 + pick(kMaxChanges); changes > 0; --changes) {
      change();
    }
    return std::move(lines_);
  }

 private:
  // A number below `end`, which must not be 0.
  std::size_t pick(std::size_t end) { return random_() % end; }
  Position anyPosition() { return static_cast<Position>(pick(lines_.size() + 1)); }
  Position anyLine() { return static_cast<Position>(pick(lines_.size())); }
  void insert(std::string line) { lines_.insert(lines_.begin() + anyPosition(), std::move(line)); }

  void change() {
    enum Kind : std::size_t { kInsert, kRemove, kRepeat, kMove, kReplaceValue, kKinds };
    const std::size_t kind = pick(lines_.empty() ? kRemove : kKinds);
    if (kind == kInsert) {
      return insert(grammar_[pick(grammar_.size())]);
    }
    const Position at = anyLine();
    if (kind == kReplaceValue) {
      return replaceValue(lines_[static_cast<std::size_t>(at)]);
    }
    std::string line = lines_[static_cast<std::size_t>(at)];
    if (kind != kRepeat) {
      lines_.erase(lines_.begin() + at);
    }
    if (kind != kRemove) {
      insert(std::move(line));
    }
  }

  void replaceValue(std::string& line) {
    const Lines& source = pick(2) == 0 ? grammar_ : lines_;
    const std::string other = source[pick(source.size())];
    line = line.substr(0, valueIn(line)) + other.substr(valueIn(other));
  }

  Lines lines_;
  const Lines& grammar_;
  std::minstd_rand random_;
};

}  // namespace

std::vector<std::string> linesOf(std::string_view text) {
  Lines lines;
  for (Input input(text); !input.atEnd();) {
    lines.emplace_back(input.line());
  }
  return lines;
}

std::string mutateLines(std::string_view input, const std::vector<std::string>& grammar,
                        std::uint32_t seed) {
  std::string text;
  for (const std::string& line : Mutation(input, grammar, seed).result()) {
    text += line + '\n';
  }
  return text;
}

}  // namespace quillon::fuzz
