// How a launched application learns its own id.
#pragma once

namespace quillon::host {

inline constexpr char kAppIdVariable[] = "QUILLON_APP_ID";

}  // namespace quillon::host
