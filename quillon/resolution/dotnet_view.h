// A folder that looks like a machine's .NET with the device's framework as its only
// Microsoft.NETCore.App, so that .NET's own host chooses that one, and the other frameworks for it.
#pragma once

#include <filesystem>
#include <string>

#include "quillon/base/failure.h"

namespace quillon::resolution {

// A temporary folder of links. The destructor removes it.
class DotnetView {
 public:
  // root     the machine's .NET, whose other frameworks are shown
  // version  of the device's framework
  [[nodiscard]] static Expected<DotnetView> make(const std::filesystem::path& root,
                                                 const std::string& version);
  ~DotnetView();
  DotnetView(DotnetView&& other) noexcept;
  DotnetView& operator=(DotnetView&&) = delete;

  const std::filesystem::path& folder() const { return folder_; }

 private:
  explicit DotnetView(std::filesystem::path folder) : folder_(std::move(folder)) {}

  std::filesystem::path folder_;
};

}  // namespace quillon::resolution
