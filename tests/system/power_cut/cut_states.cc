#include "tests/system/power_cut/cut_states.h"

#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <utility>

namespace quillon::power_cut {
namespace {

constexpr std::size_t kSector = 512;
// A recording has no more states if so many choices in sequence give known ones.
constexpr std::size_t kMaxRepetitions = 3000;

// How much of an operation the disk has made.
enum class Fate { kLost, kMade, kTorn };

using Fates = std::vector<Fate>;

bool isSyncOf(const Event& event, const Operation& operation) {
  return event.kind == Event::Kind::kSyncAll ||
         (event.kind == Event::Kind::kSync && operation.changes(event.inode));
}

class Chooser {
 public:
  Chooser(const Recording& recording, unsigned seed) : events_(recording.events), random_(seed) {
    for (std::size_t index = 0; index < events_.size(); ++index) {
      const auto sync = std::find_if(
          events_.begin() + static_cast<std::ptrdiff_t>(index), events_.end(),
          [&](const Event& event) { return isSyncOf(event, events_[index].operation); });
      syncs_.push_back(static_cast<std::size_t>(sync - events_.begin()));
    }
  }

  // The number of events before the cut.
  std::size_t cut() { return upTo(events_.size()); }

  // The fates of the events before the cut.
  Fates choose(std::size_t cut) {
    std::vector<std::size_t> pending;
    for (std::size_t index = 0; index < cut; ++index) {
      if (events_[index].kind == Event::Kind::kOperation && syncs_[index] >= cut) {
        pending.push_back(index);
      }
    }
    Fates fates(cut, Fate::kMade);
    if (!pending.empty()) {
      spoil(fates, pending);
    }
    return fates;
  }

  // The number of bytes of a torn write that are on the disk.
  std::size_t tornSize(std::size_t size) { return upTo(size / kSector) * kSector; }

 private:
  std::size_t upTo(std::size_t most) {
    return std::uniform_int_distribution<std::size_t>(0, most)(random_);
  }

  bool happens(unsigned percent) { return upTo(99) < percent; }

  bool changesFolder(std::size_t index) const { return events_[index].operation.changesFolder(); }

  void spoil(Fates& fates, const std::vector<std::size_t>& pending) {
    enum Style { kNothingMade, kOneLost, kOneMade, kInOrder, kInOrderOfFolders, kInAnyOrder, kEnd };
    const auto style = static_cast<Style>(upTo(kEnd - 1));
    if (style == kOneLost) {
      const std::size_t index = pending[upTo(pending.size() - 1)];
      fates[index] = changesFolder(index) || happens(50) ? Fate::kLost : Fate::kTorn;
      return;
    }
    if (style == kNothingMade || style == kOneMade) {
      for (const std::size_t index : pending) {
        fates[index] = Fate::kLost;
      }
      if (style == kOneMade) {
        fates[pending[upTo(pending.size() - 1)]] = Fate::kMade;
      }
      return;
    }
    loseAtRandom(fates, pending, style == kInAnyOrder);
    if (style == kInOrder) {
      loseFrom(fates, pending, pending[upTo(pending.size() - 1)]);
    } else if (style == kInOrderOfFolders) {
      loseFromInFolders(fates, pending);
    }
  }

  void loseAtRandom(Fates& fates, const std::vector<std::size_t>& pending, bool alsoFolders) {
    const auto percent = static_cast<unsigned>(10 + 20 * upTo(4));
    for (const std::size_t index : pending) {
      if ((alsoFolders || !changesFolder(index)) && happens(percent)) {
        fates[index] = changesFolder(index) || happens(60) ? Fate::kLost : Fate::kTorn;
      }
    }
  }

  // Changes of folders are lost from the event `first` on.
  void loseFrom(Fates& fates, const std::vector<std::size_t>& pending, std::size_t first) {
    for (const std::size_t index : pending) {
      if (changesFolder(index) && index >= first) {
        fates[index] = Fate::kLost;
      }
    }
  }

  // The same with another first event in each folder.
  void loseFromInFolders(Fates& fates, const std::vector<std::size_t>& pending) {
    std::map<std::size_t, std::size_t> firsts;
    const auto isLost = [&](std::size_t folder, std::size_t index) {
      const auto [first, isNew] = firsts.try_emplace(folder, 0);
      if (isNew) {
        first->second = pending.front() + upTo(fates.size() - pending.front());
      }
      return index >= first->second;
    };
    for (const std::size_t index : pending) {
      const Operation& operation = events_[index].operation;
      if (operation.changesFolder() &&
          (isLost(operation.folder, index) ||
           (operation.kind >= Operation::Kind::kRename && isLost(operation.toFolder, index)))) {
        fates[index] = Fate::kLost;
      }
    }
  }

  const std::vector<Event>& events_;
  std::vector<std::size_t> syncs_;  // the first event that flushes each operation
  std::mt19937 random_;
};

std::string textOf(const Operation& operation) {
  static const char* const names[] = {"link",  "unlink", "rename", "exchange",
                                      "write", "resize", "mode"};
  std::string text = names[static_cast<std::size_t>(operation.kind)];
  text += " of file " + std::to_string(operation.inode);
  if (operation.changesFolder()) {
    text += " '" + operation.name + "' '" + operation.toName + "'";
  } else {
    text += " " + std::to_string(operation.offset);
  }
  return text;
}

std::string textOf(const Event& event, Fate fate) {
  switch (event.kind) {
    case Event::Kind::kSync:
      return "fsync of file " + std::to_string(event.inode);
    case Event::Kind::kSyncAll:
      return "sync";
    case Event::Kind::kMark:
      return "mark";
    default:
      break;
  }
  static const char* const fates[] = {"  LOST", "", "  TORN"};
  return textOf(event.operation) + fates[static_cast<std::size_t>(fate)];
}

// Applies an event to the state.
void add(CutState& state, const Event& event, Fate fate, Chooser& chooser) {
  state.marks += event.kind == Event::Kind::kMark ? 1 : 0;
  if (event.kind != Event::Kind::kOperation || fate == Fate::kLost) {
    return;
  }
  Operation operation = event.operation;
  if (fate == Fate::kTorn && operation.kind == Operation::Kind::kWrite) {
    operation.bytes.resize(chooser.tornSize(operation.bytes.size()));
  }
  state.disk.make(operation);
}

}  // namespace

std::size_t forEachCut(const Recording& recording, std::size_t count, unsigned seed,
                       const std::function<bool(const CutState&)>& check) {
  Chooser chooser(recording, seed);
  std::set<std::pair<std::size_t, std::size_t>> seen;
  for (std::size_t repetitions = 0; seen.size() < count && repetitions < kMaxRepetitions;) {
    const Fates fates = chooser.choose(chooser.cut());
    CutState state{recording.before, 0, {}};
    for (std::size_t index = 0; index < fates.size(); ++index) {
      add(state, recording.events[index], fates[index], chooser);
    }
    if (!seen.emplace(state.disk.fingerprint(), state.marks).second) {
      ++repetitions;
      continue;
    }
    repetitions = 0;
    for (std::size_t index = 0; index < fates.size(); ++index) {
      state.history += textOf(recording.events[index], fates[index]) + '\n';
    }
    if (!check(state)) {
      break;
    }
  }
  return seen.size();
}

}  // namespace quillon::power_cut
