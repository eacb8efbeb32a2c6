// The sample application that answers questions, while it runs in a device root.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace quillon::test {

inline constexpr char kProbe[] = "org.velora.sample.probe";

// True as soon as `condition` holds; false after a generous while.
bool eventually(const std::function<bool()>& condition,
                std::chrono::seconds limit = std::chrono::seconds(30));

class RunningProbe {
 public:
  // Launches it as an application of that type and waits until it is ready.
  //
  // device       device root
  // environment  "NAME=VALUE", added to this process's
  RunningProbe(const std::filesystem::path& device, const std::string& type,
               const std::vector<std::string>& environment = {"QUILLON_LOG=none"});
  // Ends it, by force if it still runs.
  ~RunningProbe();
  RunningProbe(const RunningProbe&) = delete;
  RunningProbe& operator=(const RunningProbe&) = delete;

  // The answer, one line; "(no answer)" when none came.
  std::string ask(const std::string& question);

  // Lets it end; its exit status, 128 + signal.
  int quit();

  [[nodiscard]] pid_t pid() const { return pid_; }
  // What the launch wrote to its standard error so far.
  [[nodiscard]] std::string errors() const;

 private:
  std::string answer();
  [[nodiscard]] std::vector<std::string> lines() const;

  std::filesystem::path answers_;  // as this process sees them
  std::filesystem::path errors_;
  std::size_t read_ = 0;  // answers taken
  int questions_ = -1;
  pid_t pid_ = -1;
};

}  // namespace quillon::test
