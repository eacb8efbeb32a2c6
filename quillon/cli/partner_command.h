// quillon partner: packages of libraries that a device lets in by a signed request.
#pragma once

namespace CLI {
class App;
}

namespace quillon::cli {

// Adds "partner" with "sign" and "verify".
void addPartnerCommand(CLI::App& app);

}  // namespace quillon::cli
