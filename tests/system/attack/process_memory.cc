#include "tests/system/attack/process_memory.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <string_view>

#include "quillon/base/descriptor.h"
#include "tests/system/launch/sample_device.h"

namespace quillon::test {
namespace {

constexpr size_t kPart = 1024 * 1024;

class Search {
 public:
  explicit Search(const std::vector<std::string>& markers) : markers_(markers) {
    for (const std::string& marker : markers) {
      overlap_ = std::max(overlap_, marker.size());
    }
  }

  void inText(std::string_view text, const std::string& place) {
    for (const std::string& marker : markers_) {
      if (text.find(marker) != std::string_view::npos) {
        found_.push_back(marker + " in " + place);
      }
    }
  }

  // Parts overlap, so that a marker on a border is found.
  void inRange(int memory, unsigned long first, unsigned long end, const std::string& place) {
    std::string part(kPart, '\0');
    for (unsigned long at = first; at < end; at += kPart - overlap_) {
      const size_t wanted = std::min<unsigned long>(kPart, end - at);
      const ssize_t length = pread(memory, part.data(), wanted, static_cast<off_t>(at));
      if (length > 0) {
        isReadable_ = true;
        inText({part.data(), static_cast<size_t>(length)}, place);
      }
    }
  }

  std::vector<std::string> take() {
    if (!isReadable_) {
      found_.insert(found_.begin(), "(nothing readable)");
    }
    return std::move(found_);
  }

 private:
  const std::vector<std::string>& markers_;
  size_t overlap_ = 0;
  bool isReadable_ = false;
  std::vector<std::string> found_;
};

}  // namespace

std::vector<std::string> findInMemory(pid_t process, const std::vector<std::string>& markers) {
  const std::string folder = "/proc/" + std::to_string(process);
  const Descriptor memory(open((folder + "/mem").c_str(), O_RDONLY | O_CLOEXEC));
  Search search(markers);
  std::ifstream maps(folder + "/maps");
  for (std::string line; std::getline(maps, line);) {
    unsigned long first = 0;
    unsigned long end = 0;
    char access = '-';
    if (std::sscanf(line.c_str(), "%lx-%lx %c", &first, &end, &access) == 3 && access == 'r') {
      search.inRange(memory.get(), first, end, line);
    }
  }
  search.inText(contentOf(folder + "/environ"), "environ");
  return search.take();
}

}  // namespace quillon::test
