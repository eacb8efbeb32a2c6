// What the calling process has found in the registry, so that a launch, whose parts ask for one
// package again and again, opens it once.
//
// An answer holds while the registry's file is the one that it came from, byte for byte: another
// process that installs a package is seen by the next question. Thread safety: any thread may call;
// where two do at once, or a forked child inherited the lock, one goes without the memo.
#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>

#include "workstation/packages.h"

namespace quillon::workstation {

class LookupMemo {
 public:
  // The state of the registry's file. Take it before the registry is opened.
  struct Stamp {
    struct stat file;
    bool settled;  // old enough that a later change must show in the file's time
  };
  static std::optional<Stamp> stampNow();

  using Answer = std::optional<Package>;  // empty: there is no such package

  // What was kept under `question` while the file had that stamp.
  static std::optional<Answer> find(const Stamp& stamp, const std::string& question);
  static void keep(const Stamp& stamp, const std::string& question, const Answer& answer);
};

}  // namespace quillon::workstation
