// The sample application that answers questions, running in a device root.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace quillon::test {

inline constexpr char kProbe[] = "org.velora.sample.probe";

// Waits until `condition` is true. Returns false after the limit.
bool eventually(const std::function<bool()>& condition,
                std::chrono::seconds limit = std::chrono::seconds(30));

class RunningProbe {
 public:
  // Launches the sample as an application of that type and waits until it is ready.
  //
  // device       device root
  // environment  "NAME=VALUE", added to this process's
  RunningProbe(const std::filesystem::path& device, const std::string& type,
               const std::vector<std::string>& environment = {"QUILLON_LOG=none"});
  // Kills the application if it still runs.
  ~RunningProbe();
  RunningProbe(const RunningProbe&) = delete;
  RunningProbe& operator=(const RunningProbe&) = delete;

  // Returns the answer, one line, or "(no answer)" if there is none.
  std::string ask(const std::string& question);

  // Lets the application end. Returns its exit status, or 128 + signal.
  int quit();

  [[nodiscard]] pid_t pid() const { return pid_; }
  // The launch's standard output and error so far.
  [[nodiscard]] std::string errors() const;

 private:
  std::string answer();
  [[nodiscard]] std::vector<std::string> lines() const;

  std::filesystem::path answers_;  // as a path of this process
  std::filesystem::path errors_;
  std::size_t read_ = 0;  // number of answers returned so far
  int questions_ = -1;
  pid_t pid_ = -1;
};

}  // namespace quillon::test
