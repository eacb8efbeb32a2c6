// The standard descriptors of a process that does not know yet where they will lead.
//
// Whatever runs before that may duplicate them; the runtime does when it starts and when managed
// code first looks at the console. So each leads to a memory file of its own at first, by which its
// duplicates are known when it is led elsewhere.
#pragma once

#include <sys/types.h>

#include <array>
#include <vector>

namespace quillon::launchpad {

class StdioPlaceholders {
 public:
  // Places the memory files at descriptors 0 to 2. False where the kernel has none left.
  bool open();

  // Finds all duplicates. Call when nothing else happens in the process any more.
  void findDuplicates();

  // Leads standard descriptor `which` and its duplicates to where `descriptor` leads, which stays
  // the caller's. For -1 the standard descriptor itself is closed.
  void lead(int which, int descriptor) const;

 private:
  struct Place {
    dev_t device = 0;
    ino_t inode = 0;
    std::vector<int> descriptors;
  };
  void note(int descriptor);

  std::array<Place, 3> places_;
};

}  // namespace quillon::launchpad
