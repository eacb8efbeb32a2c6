#include "util/zq_utils/cache_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <new>
#include <stdexcept>

#include "util/log/log.h"
#include "util/zq_utils/descriptor.h"
#include "util/zq_utils/paths.h"

namespace {

// What one read is asked for at least, for files that do not tell their size.
constexpr std::size_t kSmallestRead = 4096;

// Reads to the end; empty when a read fails. The size that the file tells is a hint: one byte more
// leaves room for the read that sees the end, and only a file that has grown needs a larger text.
std::string readAll(const Descriptor& file, std::size_t size) {
  std::string content(std::max(size + 1, kSmallestRead), '\0');
  std::size_t filled = 0;
  for (;;) {
    if (filled == content.size()) {
      content.resize(2 * filled);
    }
    const ssize_t got = file.readSome(content.data() + filled, content.size() - filled);
    if (got <= 0) {
      content.resize(got < 0 ? 0 : filled);
      return content;
    }
    filled += static_cast<std::size_t>(got);
  }
}

// "w+" creates or truncates, with the permissions that the umask leaves. What goes wrong from here
// on is seen by the next reader, who looks for both marks.
//
// The stream's buffer takes the whole content, so that one write(2) carries it. Writers share the
// temporary name: were the content cut in two, a file emptied by one writer between another's parts
// would have its end before its middle, and for a moment both marks around a hole.
void save(FILE* file, const std::string& content) {
  const std::size_t room = content.size() + 1;
  const std::unique_ptr<char[]> buffer(new (std::nothrow) char[room]);
  if (buffer != nullptr) {
    setvbuf(file, buffer.get(), _IOFBF, room);
  }
  fcntl(fileno(file), F_SETFL, O_NONBLOCK);  // a planted pipe would stop the launch once full
  fprintf(file, "%s", content.c_str());
  fflush(file);
  fsync(fileno(file));
  fclose(file);
}

}  // namespace

std::string readFileToString(std::string path) {
  // Someone may plant a pipe, which would keep the reader waiting, or a link to a device that never
  // ends. Only files have content.
  const Descriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  struct stat status;
  if (!file.isOpen() || fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return {};
  }
  try {
    return readAll(file, static_cast<std::size_t>(status.st_size));
  } catch (const std::bad_alloc&) {
    return {};
  } catch (const std::length_error&) {
    return {};
  }
}

// The marks cannot overlap: neither ends as the other begins.
bool isCrashed(std::string content) {
  return !startWith(content, "[START]") || !endWith(content, "[END]");
}

void writeStringToFile(std::string directory, std::string name, std::string content) {
  const std::string temporary = directory + "temp_" + name;
  const std::string target = directory + name;
  if (!isRealPath(temporary) || !isRealPath(target)) {
    return;
  }
  FILE* file = fopen(temporary.c_str(), "w+");
  if (file == nullptr) {
    QLOG_ERROR("Fail to write string to file - open error");
    return;
  }
  save(file, content);
  QLOG_DEBUG("Save File : %s", target.c_str());
  if (rename(temporary.c_str(), target.c_str()) == 0) {
    QLOG_DEBUG("Saved");
  }
  sync();
}
