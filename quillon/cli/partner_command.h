// quillon partner: signs and verifies packages of libraries that a device accepts by a signed
// request.
#pragma once

namespace CLI {
class App;
}

namespace quillon::cli {

// Adds "partner" with "sign" and "verify".
inline constexpr char kPartnerSummary[] = "Sign and verify partner packages";

void addPartnerCommand(CLI::App& app);

}  // namespace quillon::cli
