#include "util/zq_utils/cache_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <new>
#include <stdexcept>

#include "device_names.h"
#include "util/log/log.h"
#include "util/zq_utils/descriptor.h"
#include "util/zq_utils/paths.h"

namespace {

// Buffer size for files that do not report their size.
constexpr std::size_t kUnknownSize = 4096;

// Reads to the end of the file. Returns an empty string if a read fails. `size` is what the file
// reports. The buffer has room for one more byte: if it is not filled, the file has not grown, and
// its end is reached without another read.
std::string readAll(const Descriptor& file, std::size_t size) {
  std::string content(size > 0 ? size + 1 : kUnknownSize, '\0');
  std::size_t filled = 0;
  do {
    if (filled == content.size()) {
      content.resize(2 * filled);
    }
    const ssize_t got = file.readSome(content.data() + filled, content.size() - filled);
    if (got <= 0) {
      content.resize(got < 0 ? 0 : filled);
      return content;
    }
    filled += static_cast<std::size_t>(got);
  } while (filled != size);
  content.resize(filled);
  return content;
}

// Writes `content` to the stream and closes it. A failure is not reported here; the next reader
// detects it because a marker is missing.
//
// The stream has a buffer for the whole content, so that one write(2) transfers it. Writers share
// the temporary name. If the content were written in two parts and another writer truncated the
// file in between, the file would contain the end before the middle, and for a moment both markers
// around a hole.
void save(FILE* file, const std::string& content) {
  const std::size_t room = content.size() + 1;
  const std::unique_ptr<char[]> buffer(new (std::nothrow) char[room]);
  if (buffer != nullptr) {
    setvbuf(file, buffer.get(), _IOFBF, room);
  }
  fcntl(fileno(file), F_SETFL, O_NONBLOCK);  // if the file is a pipe, the launch must not block
  fprintf(file, "%s", content.c_str());
  fflush(file);
  fsync(fileno(file));
  fclose(file);
}

}  // namespace

std::string readFileToString(std::string path) {
  // Another user may have placed a pipe here, which would block the reader, or a link to a device
  // that has no end. Only regular files are read.
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

// The markers cannot overlap, because neither begins with the end of the other.
bool isComplete(std::string_view content) {
  return content.starts_with(device_names::kCacheStartMarker) &&
         content.ends_with(device_names::kCacheEndMarker);
}

bool isCrashed(std::string content) { return !isComplete(content); }

void writeStringToFile(std::string directory, std::string name, std::string content) {
  const std::string temporary = directory + "temp_" + name;
  const std::string target = directory + name;
  if (!isRealPath(temporary) || !isRealPath(target)) {
    return;
  }
  // "w+" creates or truncates the file, with the permissions that the umask allows.
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
