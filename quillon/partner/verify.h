// Verifies a partner package with the plug-in, as on a device with a given key and id.
#pragma once

#include <filesystem>
#include <string>

namespace quillon::partner {

struct VerifyOptions {
  std::filesystem::path key;        // the signing authority's public key in PEM
  std::string duid;                 // the device's unique id
  std::filesystem::path directory;  // of the two files
  std::filesystem::path plugin;     // to load; empty: the one built with this program
};

// Reports the result to the user and returns the exit status. The calling process must have one
// thread. It does not enter a device root; its child process does.
int verify(const VerifyOptions& options);

}  // namespace quillon::partner
