// A launch pad for a test, and launches through it.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/system/launch/running_probe.h"
#include "tests/system/launch/sample_device.h"

namespace quillon::test {

// Makes a device root. No launch pad runs until start(), and it prepares no process at first.
class LaunchpadTest : public RuntimeTest {
 protected:
  void SetUp() override;
  ~LaunchpadTest() override;

  // Lets start() run another copy of the quillon program.
  void useProgram(const std::filesystem::path& program) { program_ = program; }

  // Lets start() allow processes that know their application.
  void allowOwnProcesses(int mebibytes = 1024) { memory_ = mebibytes; }

  // Lets start() prepare no process in the place of one that has got a launch. If processes that
  // know their application are allowed, they serve its first launch, and the others its second.
  void allowNoRefill() { refillDelay_ = 3600; }

  // Starts the launch pad with further options and waits until it serves. The parent ignores the
  // signal `ignored`.
  void start(int size, int ignored = 0, const std::vector<std::string>& more = {});

  // Called in the launch pad's process before the program is executed. Returns false to end it.
  virtual bool prepareLaunchpadProcess() const { return true; }

  // Makes it prepare processes for such a launch: requests one launch, which is direct, and waits
  // until the pool is full, and the application has a process of its own if that is allowed.
  void prepareFor(const std::vector<std::string>& launchArguments);

  CommandResult control(const std::string& action) const;
  std::string status() const { return control("status").out; }
  int served() const;
  int servedByOwnProcesses() const;
  // Expects that many prepared launches so far, by own processes if they are allowed.
  void expectServed(int count) const;
  // The ids of the processes whose stage the status shows as this word.
  std::vector<pid_t> processes(const std::string& stage) const;
  // Waits until `count` processes are at a stage.
  bool awaitProcesses(const std::string& stage, size_t count) const;
  // Waits until the pools of that many different launches are full.
  bool awaitReady(size_t launches = 1) const;

  // Kills the launch pad and waits for its end.
  void killLaunchpad();
  // Waits for the end of the launch pad and returns its exit status.
  int endOfLaunchpad();

  // Starts a zone, then the launch pad, and launches an application that enters it.
  void expectApplicationInTheZone(const std::vector<std::string>& launchpadOptions = {});

  // Launches an application of each type, with and without --preload, and expects no error in the
  // log.
  void expectNoErrorsInTheLog() const;

  // Expects that the launch pad does not answer a process of another user.
  void expectNoAnswerTo(uid_t user) const;

  pid_t launchpad() const { return launchpad_; }
  int size() const { return size_; }
  std::string errors() const { return contentOf(fresh("launchpad-errors")); }

 private:
  int numberAfter(const std::string& words) const;  // in the status; -1 if it lacks them
  size_t processesOfALaunch() const;

  std::filesystem::path program_ = QUILLON_BUILD_DIRECTORY "/bin/quillon";
  pid_t launchpad_ = -1;
  int size_ = 0;
  int memory_ = 0;       // MiB for own processes
  int refillDelay_ = 0;  // seconds
};

// The parameter: whether the launches are served by processes that know their application.
class LaunchpadTestByProcess : public LaunchpadTest, public ::testing::WithParamInterface<bool> {
 protected:
  void SetUp() override {
    if (GetParam()) {
      allowOwnProcesses();
    }
    LaunchpadTest::SetUp();
  }
};

// The names of the parameter.
inline std::string nameOfProcess(const ::testing::TestParamInfo<bool>& test) {
  return test.param ? "OwnProcess" : "SharedProcess";
}

// A `quillon launch` that runs in the background.
class RunningLaunch {
 public:
  explicit RunningLaunch(const std::vector<std::string>& command);
  ~RunningLaunch();
  RunningLaunch(const RunningLaunch&) = delete;
  RunningLaunch& operator=(const RunningLaunch&) = delete;

  // Waits for its end.
  CommandResult wait();

  void signal(int signal) const { kill(pid_, signal); }
  // What it has written to its standard output so far.
  [[nodiscard]] std::string output() const { return contentOf(output_.path() / "out"); }
  // Whether the command has blocked its signals in order to relay them.
  [[nodiscard]] bool relaysSignals() const;

 private:
  TemporaryDirectory output_;
  pid_t pid_ = -1;
};

// Returns false for a zombie too.
bool isAlive(pid_t process);

}  // namespace quillon::test
