// Remedies for failures that concern the validator. Each text is defined only here.
#pragma once

namespace quillon::host {

inline constexpr char kStartValidator[] =
    "start one: quillon validator --device DIR POLICY.toml, then launch again";
inline constexpr char kRestartValidator[] =
    "end the validator that runs and start one: quillon validator --device DIR POLICY.toml, then "
    "launch again";
inline constexpr char kChangePolicy[] =
    "see the validator's terminal for the reason, and allow it in the validator's policy";

}  // namespace quillon::host
