// Asks .NET's own host what an application needs.
#pragma once

#include <string>

#include "quillon/base/failure.h"
#include "quillon/dotnet/host_lookup.h"
#include "quillon/resolution/additions.h"

namespace quillon::resolution {

// Loads the host in a child process and returns its answer. The host reads files of the package, so
// it may crash or hang: the child has no more than five seconds and no terminal. If it crashes, the
// additions have a warning only. Fails if another attempt may have another result; the failure is
// such a warning too. Call inside the device root, in a process with one thread.
//
// version  of the device's framework
[[nodiscard]] Expected<Additions> askHost(const dotnet::Host& host, const std::string& assembly,
                                          const std::string& version);

}  // namespace quillon::resolution
