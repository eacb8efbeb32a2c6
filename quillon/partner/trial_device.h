// A temporary device root for one verification. It contains only a public key, at the place where
// the plug-in looks for the key of the signing authority.
#pragma once

#include <filesystem>

#include "quillon/base/failure.h"

namespace quillon::partner {

class TrialDevice {
 public:
  // Creates the device root in the folder for temporary files. The destructor removes it.
  [[nodiscard]] static Expected<TrialDevice> make(const std::filesystem::path& publicKey);
  ~TrialDevice();
  TrialDevice(TrialDevice&& other) noexcept;
  TrialDevice& operator=(TrialDevice&&) = delete;

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }

 private:
  explicit TrialDevice(std::filesystem::path path) : path_(std::move(path)) {}

  std::filesystem::path path_;  // empty: moved to another object
};

}  // namespace quillon::partner
