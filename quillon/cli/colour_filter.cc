#include "quillon/cli/colour_filter.h"

namespace quillon::cli {
namespace {

constexpr char kEscape = '\x1b';
constexpr std::string_view kParameters = "0123456789;:";
// A longer one is no colour.
constexpr std::size_t kMaxSequence = 64;

// Whether `pending`, the beginning of an escape sequence, can continue with the character `next`.
bool mayContinue(std::string_view pending, char next) {
  return pending.size() == 1
             ? next == '['
             : pending.size() < kMaxSequence && kParameters.find(next) != kParameters.npos;
}

}  // namespace

std::string ColourFilter::operator()(std::string_view part) {
  std::string text;
  for (const char next : part) {
    if (pending_.empty() && next != kEscape) {
      text += next;
    } else if (pending_.empty() || mayContinue(pending_, next)) {
      pending_ += next;
    } else if (pending_.size() > 1 && next == 'm') {
      pending_.clear();
    } else {
      text += pending_;
      pending_ = next == kEscape ? std::string(1, next) : std::string();
      text += next == kEscape ? std::string() : std::string(1, next);
    }
  }
  return text;
}

}  // namespace quillon::cli
