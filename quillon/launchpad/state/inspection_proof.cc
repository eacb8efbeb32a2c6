#include "quillon/launchpad/state/inspection_proof.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <string>

#include "quillon/base/record.h"

namespace quillon::launchpad {
namespace {

constexpr int kDescriptor = 32;  // above those of a process that has just started
constexpr size_t kMaxLength = 128;

}  // namespace

Descriptor openInspectionProof() {
  uint64_t number = 0;
  if (getrandom(&number, sizeof number, 0) != sizeof number) {
    return {};
  }
  const std::string name = "quillon-launchpad-" + std::to_string(number);
  const Descriptor file(memfd_create(name.c_str(), MFD_CLOEXEC));
  return Descriptor(dup3(file.get(), kDescriptor, O_CLOEXEC));
}

ProcessState inspectionProofOf(pid_t server) {
  const std::string link = "/proc/" + std::to_string(server) + "/fd/" + std::to_string(kDescriptor);
  std::array<char, kMaxLength> target;
  const ssize_t length = readlink(link.c_str(), target.data(), target.size());
  if (length <= 0) {
    return {};
  }
  return RecordWriter()
      .text("its right to inspect the launch pad")
      .text({target.data(), static_cast<size_t>(length)})
      .take();
}

}  // namespace quillon::launchpad
