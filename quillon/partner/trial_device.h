// A device root that lives as long as one trial: it holds a public key where the plug-in looks for
// the signing authority's, and nothing else.
#pragma once

#include <filesystem>

#include "quillon/base/failure.h"

namespace quillon::partner {

class TrialDevice {
 public:
  // Makes the device root in the folder for temporary files.
  [[nodiscard]] static Expected<TrialDevice> make(const std::filesystem::path& publicKey);
  ~TrialDevice();
  TrialDevice(TrialDevice&& other) noexcept;
  TrialDevice& operator=(TrialDevice&&) = delete;

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }

 private:
  explicit TrialDevice(std::filesystem::path path) : path_(std::move(path)) {}

  std::filesystem::path path_;  // empty: handed over
};

}  // namespace quillon::partner
