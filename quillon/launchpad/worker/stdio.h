// The standard descriptors of a worker, whose targets are unknown until it has a launch.
//
// Code that runs before that may duplicate them: the runtime does when it starts and when managed
// code first uses the console. So each standard descriptor refers to a memory file of its own at
// first, which identifies its duplicates when it is redirected.
#pragma once

#include <sys/types.h>

#include <array>
#include <vector>

namespace quillon::launchpad {

class StdioPlaceholders {
 public:
  // Opens the memory files as descriptors 0 to 2. Returns false if it cannot create one.
  bool open();

  // Finds all duplicates. No other thread may open or duplicate descriptors meanwhile or later.
  void findDuplicates();

  // Redirects standard descriptor `which` and its duplicates to the file of `descriptor`, which
  // remains the caller's. If `descriptor` is -1, closes the standard descriptor itself.
  void redirect(int which, int descriptor) const;

 private:
  struct Placeholder {
    dev_t device = 0;
    ino_t inode = 0;
    std::vector<int> descriptors;
  };
  void recordIfDuplicate(int descriptor);

  std::array<Placeholder, 3> placeholders_;
};

}  // namespace quillon::launchpad
