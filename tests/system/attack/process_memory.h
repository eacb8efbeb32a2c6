// Searches the memory of another process.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace quillon::test {

// Which of the markers stand in the readable memory of the process or in its "environ", with the
// line of "maps" for each place. Empty lists of readable memory are a failure: the first element is
// then "(nothing readable)".
std::vector<std::string> findInMemory(pid_t process, const std::vector<std::string>& markers);

}  // namespace quillon::test
