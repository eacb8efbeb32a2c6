// A platform in memory for unit tests: it defines every symbol of the platform's interface, records
// what the code under test asks of it, and answers as the test told it to.
//
// Link `quillon-recording-platform` beside `quillon-tv-plugin-static`. One instance serves the
// process; each test begins with platform().reset(), which the fixture below does.
//
// Thread safety: the code under test may call the platform from any thread; read the records once
// those threads are done.
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

  // Parts of a text in the plug-in's line format; empty where it is not in it.
  std::string file() const;
  std::string function() const;
  int line() const;
  std::string colour() const;   // the opening escape, "\x1b[36m"; empty in a line without colour
  std::string message() const;  // without prefix, opening escape and "\x1b[0m\n"
};

struct FakeApplication {
  std::string id;
  std::string exec;
  bool service = false;
  std::vector<std::pair<std::string, std::string>> metadata;
};

// The first application is the main one.
struct FakePackage {
  std::string id;
  std::string rootPath;
  std::vector<std::string> privileges;
  std::vector<FakeApplication> applications;
};

// A registration for changes of a key.
struct KeyWatch {
  std::string key;
  vconf_callback_fn callback;
  void* userData;
};

struct RecordingPlatform {
  // What happened, in order.
  std::vector<LogRecord> log;
  std::vector<std::string> trace;    // "begin NAME" and "end"
  std::vector<std::string> markers;  // texts given to prctl option 666
  std::vector<std::string> calls;    // "function(argument, ...)" of every service call; a handle is
                                     // told by the id that it stands for, or "null"
  std::vector<std::string> events;   // log, trace, markers and the process name as they came:
                                     // "log MESSAGE", "begin NAME", "end", "marker TEXT",
                                     // "process name NAME"
  std::multiset<std::string> openHandles;  // ids of handles obtained and not yet released
  std::vector<KeyWatch> watches;           // registrations in force

  // What the services answer.
  std::vector<FakePackage> packages;
  std::map<std::string, std::string> config;  // configuration-store texts
  std::map<pid_t, std::string> processes;     // process id to package id
  uid_t targetUser = 0;
  std::map<std::string, std::string> labels;      // access labels by path
  std::map<std::string, std::string> linkLabels;  // those of links themselves
  std::map<std::string, int> failures;            // function name to the result it returns instead;
                                                  // "PR_SET_NAME" for that option of prctl
  std::set<std::string> nullHandles;              // functions that succeed with a null handle;
                                                  // package_info_create knows it

  // Prints each log record to standard error as well, "PRIORITY TAG TEXT", for tests that match the
  // output of a process of their own (EXPECT_EXIT).
  bool echo = false;

  void reset();
  // The messages of all records of one priority, in order; trace lines are left out.
  std::vector<std::string> messages(int priority) const;
  // The messages of all records but trace lines, in order, as "3 text".
  std::vector<std::string> lines() const;
  // Calls what is registered for the key with a node that holds `value`; returns how many.
  int changeKey(const std::string& key, int value);
};

RecordingPlatform& platform();

// A test with a platform of its own.
class PlatformTest : public ::testing::Test {
 protected:
  void SetUp() override { platform().reset(); }
};

}  // namespace quillon::test
