// Asks the plug-in about a partner package, as a device with a given key and id would.
#pragma once

#include <filesystem>
#include <string>

namespace quillon::partner {

struct VerifyOptions {
  std::filesystem::path key;        // the signing authority's public key in PEM
  std::string duid;                 // the device's unique id
  std::filesystem::path directory;  // holds the two files
  std::filesystem::path plugin;     // plug-in to ask; empty: the one beside this program
};

// Reports the answer to a person and returns the status to end with. The calling process must have
// one thread; it enters no device root, a child of it does.
int verify(const VerifyOptions& options);

}  // namespace quillon::partner
