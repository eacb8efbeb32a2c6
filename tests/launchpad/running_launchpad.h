// A launch pad of a test's own, and launches through it.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "tests/launch/running_probe.h"
#include "tests/launch/sample_device.h"

namespace quillon::test {

// With a device root, and without a launch pad until start(). Prepares for nothing at first.
class LaunchpadTest : public RuntimeTest {
 protected:
  void SetUp() override;
  ~LaunchpadTest() override;

  // Starts the launch pad, which comes to ignore a signal, and waits until it serves.
  void start(int size, int ignored = 0);

  // Makes it keep processes for such a launch: asks for one, which is launched directly, and waits
  // until as many as the pool's size are ready.
  void prepareFor(const std::vector<std::string>& launchArguments);

  CommandResult control(const std::string& action) const;
  std::string status() const { return control("status").out; }
  int served() const;
  // Process ids with that word in the status.
  std::vector<pid_t> processes(const std::string& stage) const;
  // Waits until so many processes are at a stage.
  bool awaitProcesses(const std::string& stage, size_t count) const;

  // Kills it and waits for its end.
  void killLaunchpad();
  // Waits for its end; its exit status.
  int endOfLaunchpad();

  // Starts a zone, then the launch pad, and launches an application that enters it.
  void expectApplicationInTheZone();

  // A process of another user gets no answer from it.
  void expectNoAnswerTo(uid_t user) const;

  pid_t launchpad() const { return launchpad_; }
  int size() const { return size_; }
  std::string errors() const { return contentOf(fresh("launchpad-errors")); }

 private:
  pid_t launchpad_ = -1;
  int size_ = 0;
};

// A launch that runs beside the test.
class RunningLaunch {
 public:
  explicit RunningLaunch(const std::vector<std::string>& command);
  ~RunningLaunch();
  RunningLaunch(const RunningLaunch&) = delete;
  RunningLaunch& operator=(const RunningLaunch&) = delete;

  // Its end.
  CommandResult wait();

  void signal(int signal) const { kill(pid_, signal); }
  // Whether signals reach its application, or are kept for it, rather than act on the command.
  [[nodiscard]] bool relaysSignals() const;

 private:
  TemporaryDirectory output_;
  pid_t pid_ = -1;
};

// Whether any of its threads has not ended; nobody needs to have reaped it.
bool isAlive(pid_t process);

}  // namespace quillon::test
