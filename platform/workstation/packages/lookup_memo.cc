#include "packages/lookup_memo.h"

#include <time.h>

#include <map>
#include <mutex>

#include "device_data.h"

namespace quillon::workstation {
namespace {

// More than the clock that stamps files steps by (a tick of the kernel, at most 10 ms).
constexpr long kSettledNs = 100'000'000;
// Two for each package of a workstation that has many.
constexpr size_t kMostAnswers = 512;

struct Memo {
  std::mutex mutex;
  struct stat file {};
  std::map<std::string, LookupMemo::Answer> answers;
};

// Lives until the process ends: threads may ask while static objects are destroyed.
Memo& memo() {
  static Memo& instance = *new Memo;
  return instance;
}

bool isSame(const struct stat& one, const struct stat& other) {
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino && one.st_size == other.st_size &&
         one.st_mtim.tv_sec == other.st_mtim.tv_sec &&
         one.st_mtim.tv_nsec == other.st_mtim.tv_nsec &&
         one.st_ctim.tv_sec == other.st_ctim.tv_sec && one.st_ctim.tv_nsec == other.st_ctim.tv_nsec;
}

bool isSettled(const struct stat& file) {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  const long long age =
      (now.tv_sec - file.st_ctim.tv_sec) * 1'000'000'000LL + (now.tv_nsec - file.st_ctim.tv_nsec);
  return age > kSettledNs;
}

}  // namespace

std::optional<LookupMemo::Stamp> LookupMemo::stampNow() {
  Stamp stamp{};
  if (stat(kRegistryPath, &stamp.file) != 0) return std::nullopt;
  stamp.settled = isSettled(stamp.file);
  return stamp;
}

std::optional<LookupMemo::Answer> LookupMemo::find(const Stamp& stamp,
                                                   const std::string& question) {
  const std::unique_lock lock(memo().mutex, std::try_to_lock);
  if (!lock || !stamp.settled || !isSame(stamp.file, memo().file)) return std::nullopt;
  const auto found = memo().answers.find(question);
  if (found == memo().answers.end()) return std::nullopt;
  return found->second;
}

void LookupMemo::keep(const Stamp& stamp, const std::string& question, const Answer& answer) {
  const std::unique_lock lock(memo().mutex, std::try_to_lock);
  if (!lock || !stamp.settled) return;
  if (!isSame(stamp.file, memo().file) || memo().answers.size() >= kMostAnswers) {
    memo().answers.clear();
    memo().file = stamp.file;
  }
  memo().answers[question] = answer;
}

}  // namespace quillon::workstation
