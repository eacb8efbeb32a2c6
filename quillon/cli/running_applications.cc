#include "quillon/cli/running_applications.h"

#include <fcntl.h>

#include <algorithm>
#include <charconv>
#include <optional>
#include <system_error>

#include "quillon/base/directory_entries.h"
#include "quillon/base/files.h"
#include "quillon/base/folders.h"
#include "quillon/base/process.h"
#include "quillon/device/device_root.h"
#include "quillon/device/layout.h"
#include "quillon/device/record.h"
#include "workstation/packages.h"

namespace quillon::cli {
namespace {

namespace fs = std::filesystem;

// Returns 0 if the name is not a process id.
pid_t processNamed(const std::string& name) {
  pid_t process = 0;
  const char* const end = name.data() + name.size();
  const auto read = std::from_chars(name.data(), end, process);
  return read.ec == std::errc() && read.ptr == end ? process : 0;
}

bool isInside(pid_t process, const fs::path& device) {
  const fs::path root = "/proc/" + std::to_string(process) + "/root";
  return readWholeFile(root / device::kInsideMarker, kMaxTextSize) == device.string();
}

// The process id belongs to one process as long as that process runs, so what is read of the id is
// true of the process of the pidfd if it runs afterwards.
std::optional<RunningApplication> find(int records, pid_t process, const fs::path& device) {
  Descriptor pidfd = openPidfd(process);
  if (!pidfd) {
    return std::nullopt;
  }
  auto record = workstation::recordOfProcess(records, process);
  if (!record || !isInside(process, device) || !isRunning(pidfd)) {
    return std::nullopt;
  }
  return RunningApplication{process, std::move(pidfd), std::move(record->packageId),
                            std::move(record->applicationId)};
}

}  // namespace

Expected<std::vector<RunningApplication>> runningApplications(const fs::path& device) {
  RETURN_IF_FAILED(withStatus(kNoDeviceRoot, device::readRecord(device)));
  std::error_code ignored;
  const fs::path root = fs::canonical(device, ignored);
  const Descriptor records =
      openFolderWithoutLinks(AT_FDCWD, device::pathInDevice(root, workstation::kProcessDirectory));
  std::vector<RunningApplication> found;
  for (const std::string& name : directoryEntries(records.get())) {
    const pid_t process = processNamed(name);
    if (auto application = process > 0 ? find(records.get(), process, root) : std::nullopt) {
      found.push_back(*std::move(application));
    }
  }
  std::sort(found.begin(), found.end(),
            [](const auto& one, const auto& other) { return one.process < other.process; });
  return found;
}

}  // namespace quillon::cli
