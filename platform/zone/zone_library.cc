// The functions of the zone library. See platform/zone.h.
#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "join.h"
#include "platform/zone.h"
#include "workstation/zone_state.h"
#include "zone_log.h"

using quillon::zone::logError;

namespace {

struct Context {
  int holder;  // pidfd
  char name[quillon::workstation::kMaxZoneNameLength + 1];
};

// Restores errno, so that callers do not see our changes of it.
class ErrnoKeeper {
 public:
  ErrnoKeeper() : kept_(errno) {}
  ~ErrnoKeeper() { errno = kept_; }
  ErrnoKeeper(const ErrnoKeeper&) = delete;
  ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

 private:
  int kept_;
};

// Returns a pidfd, or -1 with errno.
int findHolder(const char* name) {
  const int directory =
      ::open(quillon::workstation::kZoneStateDirectory, O_PATH | O_DIRECTORY | O_CLOEXEC);
  if (directory < 0) {
    return -1;
  }
  pid_t pid = -1;
  const int holder = quillon::workstation::openZoneHolder(directory, name, pid);
  const int error = errno;
  ::close(directory);
  errno = error;
  return holder;
}

Context* makeContext(const char* name, int holder) {
  auto* context = static_cast<Context*>(std::calloc(1, sizeof(Context)));
  if (context == nullptr) {
    ::close(holder);
    logError("cannot enter the zone '%s': out of memory", name);
    return nullptr;
  }
  context->holder = holder;
  std::strncpy(context->name, name, quillon::workstation::kMaxZoneNameLength);
  return context;
}

const char* causeOf(int error) {
  switch (error) {
    case EBUSY:
      return "the process has more than one thread";
    case EPERM:
      return "this process may not enter it: the zone was started by another user, or in a user "
             "namespace of its own";
    case ESRCH:
      return "it has stopped";
    default:
      return std::strerror(error);
  }
}

int failed(const char* step, const char* cause, int error) {
  logError("%s: %s", step, cause);
  return -error;
}

}  // namespace

void* zone_get_context(const char* name) {
  const ErrnoKeeper keeper;
  if (!quillon::workstation::isZoneName(name)) {
    logError("'%.80s' is no name of a zone", name == nullptr ? "(null)" : name);
    return nullptr;
  }
  const int holder = findHolder(name);
  if (holder >= 0) {
    return makeContext(name, holder);
  }
  if (errno == ESRCH) {
    logError("the zone '%s' is not running: its holder has ended", name);
  } else {
    logError("there is no zone '%s': %s", name,
             errno == ENOENT ? "nobody started it" : std::strerror(errno));
  }
  return nullptr;
}

int zone_enable_debug_mode(void* context) {
  const ErrnoKeeper keeper;
  if (context == nullptr) {
    return failed("cannot enable debug mode", "no zone given", EINVAL);
  }
  // EINVAL: the kernel has no Yama, so debuggers need no permission.
  if (::prctl(PR_SET_PTRACER, PR_SET_PTRACER_ANY, 0, 0, 0) != 0 && errno != EINVAL) {
    return failed("cannot enable debug mode", std::strerror(errno), errno);
  }
  if (::prctl(PR_SET_DUMPABLE, 1, 0, 0, 0) != 0) {
    return failed("cannot enable debug mode", std::strerror(errno), errno);
  }
  return 0;
}

int zone_attach_process(void* context) {
  const ErrnoKeeper keeper;
  if (context == nullptr) {
    return failed("cannot enter a zone", "no zone given", EINVAL);
  }
  const auto* zone = static_cast<const Context*>(context);
  const int error = quillon::zone::joinNamespaces(zone->holder);
  if (error != 0) {
    logError("cannot enter the zone '%s': %s", zone->name, causeOf(error));
  }
  return -error;
}

int zone_release_context(void** context) {
  const ErrnoKeeper keeper;
  if (context == nullptr || *context == nullptr) {
    return 0;
  }
  ::close(static_cast<Context*>(*context)->holder);
  std::free(*context);
  *context = nullptr;
  return 0;
}
