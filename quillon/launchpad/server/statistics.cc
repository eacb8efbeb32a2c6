#include "quillon/launchpad/server/statistics.h"

#include <algorithm>
#include <ctime>
#include <iterator>

namespace quillon::launchpad {
namespace {

constexpr size_t kMaxRecent = 16;
constexpr size_t kMaxReasons = 32;  // further ones count as another reason
constexpr size_t kMaxText = 200;
constexpr char kOtherReason[] = "another reason";

std::string shortened(std::string text) {
  text.resize(std::min(text.size(), kMaxText));
  return text;
}

}  // namespace

void Statistics::onPrepared(std::chrono::microseconds latency, bool isKnown) {
  const double seconds = std::chrono::duration<double>(latency).count();
  const auto* const bound =
      std::lower_bound(std::begin(kLatencyBounds), std::end(kLatencyBounds), seconds);
  ++latencies_[static_cast<size_t>(bound - std::begin(kLatencyBounds))];
  latencySumUs_ += static_cast<uint64_t>(latency.count());
  ++prepared_;
  known_ += isKnown ? 1 : 0;
}

void Statistics::onDirect(std::string application, std::string reason) {
  std::string text = shortened(std::move(reason));
  const bool isFull = reasons_.size() >= kMaxReasons && reasons_.find(text) == reasons_.end();
  ++reasons_[isFull ? kOtherReason : text];
  recent_.push_back({static_cast<uint64_t>(std::time(nullptr)), shortened(std::move(application)),
                     std::move(text)});
  if (recent_.size() > kMaxRecent) {
    recent_.pop_front();
  }
}

void Statistics::addTo(Status& status) const {
  status.prepared = prepared_;
  status.known = known_;
  status.latencies = latencies_;
  status.latencySumUs = latencySumUs_;
  status.recent.assign(recent_.begin(), recent_.end());
  for (const auto& [text, launches] : reasons_) {
    status.reasons.push_back({text, launches});
  }
}

}  // namespace quillon::launchpad
