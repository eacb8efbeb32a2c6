// The environment variable that tells a launched application its own id.
#pragma once

namespace quillon::host {

inline constexpr char kAppIdVariable[] = "QUILLON_APP_ID";

}  // namespace quillon::host
