// An in-memory platform for unit tests. It defines all symbols of the platform's interface, records
// the calls of the code under test, and returns what the test has set.
//
// Link `quillon-recording-platform` together with `quillon-tv-plugin-static`. The process has one
// instance. Each test must begin with platform().reset(); the fixture below calls it.
//
// A log line of the plug-in whose function field is not one of its operations (log_operations.h)
// fails the test.
//
// Thread safety: the code under test may call the platform from any thread. Read the records only
// after those threads have finished.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/vconf.h"

namespace quillon::test {

struct LogRecord {
  int logId;
  int priority;
  std::string tag;
  std::string text;  // formatted, colour escapes included

  // Parts of a text in the plug-in's line format; empty for other texts.
  std::string file() const;
  std::string function() const;
  int line() const;
  std::string colour() const;   // the opening escape, "\x1b[36m"; empty without colour
  std::string message() const;  // without prefix, opening escape and "\x1b[0m\n"
};

struct FakeApplication {
  std::string id;
  std::string exec;
  bool service = false;
  std::vector<std::pair<std::string, std::string>> metadata;
};

// The first application is the main application.
struct FakePackage {
  std::string id;
  std::string rootPath;
  std::vector<std::string> privileges;
  std::vector<FakeApplication> applications;
};

// A registered callback for changes of a key.
struct KeyWatch {
  std::string key;
  vconf_callback_fn callback;
  void* userData;
};

struct RecordingPlatform {
  // Records, in order.
  std::vector<LogRecord> log;
  std::vector<std::string> trace;    // "begin NAME" and "end"
  std::vector<std::string> markers;  // texts given to prctl option 666
  std::vector<std::string> calls;    // "function(argument, ...)" of every service call; handles are
                                     // written as the id of their object, or "null"
  std::vector<std::string> events;   // log, trace, markers and process names in order:
                                     // "log MESSAGE", "begin NAME", "end", "marker TEXT",
                                     // "process name NAME"
  std::multiset<std::string> openHandles;  // ids of handles that are not released
  std::vector<KeyWatch> watches;           // current registrations

  // Results of the services.
  std::vector<FakePackage> packages;
  std::map<std::string, std::string> config;  // configuration-store texts
  std::map<pid_t, std::string> processes;     // process id to package id
  uid_t targetUser = 0;
  std::map<std::string, std::string> labels;      // access labels by path
  std::map<std::string, std::string> linkLabels;  // labels of symbolic links
  std::map<std::string, int> failures;            // function name to the result it returns instead;
                                        // "PR_SET_NAME" for that option of prctl. A handle
                                        // or string that fails to be returned is garbage,
                                        // except as the next line says
  std::set<std::string> handlesOfFailures;  // functions that return a handle although they fail;
                                            // app_info_create and app_info_metadata_filter_create
                                            // know it. Otherwise those two store none
  std::set<std::string> nullHandles;        // functions that succeed with a null handle;
                                            // package_info_create knows it

  // Also prints each log record to standard error as "PRIORITY TAG TEXT", for tests that match the
  // output of a child process (EXPECT_EXIT).
  bool echo = false;

  void reset();
  // The messages of all records of one priority, in order, without trace lines.
  std::vector<std::string> messages(int priority) const;
  // The messages of all records in order, as "3 text", without trace lines.
  std::vector<std::string> lines() const;
  // The same with the function field, as "3 function: text".
  std::vector<std::string> linesOfOperations() const;
  // Calls the callbacks of the key with a node that holds `value`. Returns their number.
  int changeKey(const std::string& key, int value);
};

RecordingPlatform& platform();

// A test that begins with an empty platform.
class PlatformTest : public ::testing::Test {
 protected:
  void SetUp() override { platform().reset(); }
};

}  // namespace quillon::test
