#include "tests/unit/util/capture/capture_process.h"

#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "tests/support/recording_platform.h"
#include "tests/unit/util/capture/scripted_calls.h"
#include "util/log/crash_keywords.h"
#include "util/log/error_file.h"
#include "util/log/message_end.h"
#include "util/log/stream_capture.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

constexpr unsigned kMaxLifetime = 60;
constexpr int kFirstDescriptor = 20;

size_t threads() {
  return static_cast<size_t>(
      std::distance(fs::directory_iterator("/proc/self/task"), fs::directory_iterator()));
}

void closeIfOpen(int descriptor) {
  if (descriptor >= 0) {
    close(descriptor);
  }
}

// The readers end when no write end is open any more. They have then logged everything.
void endCapture(size_t threadsBefore) {
  std::fflush(nullptr);
  closeMessageEnd();
  const int out = pStdOut[1];
  const int err = pStdErr[1];
  for (const int writer : {STDOUT_FILENO, STDERR_FILENO, out, err}) {
    closeIfOpen(writer);
  }
  while (threads() > threadsBefore) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

std::string contentOf(const std::string& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

json logged() {
  json texts = json::array();
  for (const LogRecord& record : platform().log) {
    if (record.file() != "log.h") {
      texts.push_back(record.text);
    }
  }
  return texts;
}

json found(const Notes& notes) {
  json result = {{"lines", platform().lines()},
                 {"texts", logged()},
                 {"trace", platform().trace},
                 {"calls", calls().calls},
                 {"errorFile", errorLogFile},
                 {"errorText", contentOf(errorLogFile)},
                 {"managed", managedExceptionOccurred.load()},
                 {"memory", memoryIssueOccurred.load()},
                 {"notes", notes}};
  if (!errorLogFile.empty()) {
    unlink(errorLogFile.c_str());
  }
  return result;
}

// Redirects the descriptors to pipes that no one reads, so that a test can distinguish them from
// others.
void leadNowhere() {
  for (const int descriptor : {STDOUT_FILENO, STDERR_FILENO}) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) == 0) {
      dup2(ends[1], descriptor);
    }
  }
}

[[noreturn]] void live(int results, const std::function<void(Notes&)>& body) {
  alarm(kMaxLifetime);
  const size_t threadsBefore = threads();  // more than one under an emulator with its own
  leadNowhere();
  platform().reset();
  calls().calls.clear();
  Notes notes;
  body(notes);
  calls().active = false;
  endCapture(threadsBefore);
  put(results, found(notes).dump(-1, ' ', false, json::error_handler_t::replace));
  _exit(0);
}

// Removes the error files of a process that was ended by a signal or a handler.
void removeErrorFiles(pid_t process) {
  const std::string name = "dotnet_error." + std::to_string(process) + ".";
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator("/tmp")) {
    if (entry.path().filename().string().starts_with(name)) {
      files.push_back(entry.path());
    }
  }
  std::error_code gone;
  for (const fs::path& file : files) {
    fs::remove(file, gone);
  }
}

std::string endingOf(pid_t child) {
  int status = 0;
  waitpid(child, &status, 0);
  removeErrorFiles(child);
  if (WIFSIGNALED(status)) {
    return "signal " + std::to_string(WTERMSIG(status));
  }
  return WEXITSTATUS(status) == 0 ? "" : "status " + std::to_string(WEXITSTATUS(status));
}

std::string readAll(int input) {
  std::string text;
  std::array<char, 65536> buffer{};
  for (ssize_t count; (count = read(input, buffer.data(), buffer.size())) > 0;) {
    text.append(buffer.data(), static_cast<size_t>(count));
  }
  return text;
}

std::vector<std::string> messagesFrom(const Captured& captured, const std::string& function) {
  std::vector<std::string> result;
  for (size_t i = 0; i < captured.texts.size(); ++i) {
    if (captured.texts[i].rfind("log.cc: " + function + "(", 0) == 0) {
      result.push_back(captured.lines[i].substr(2));
    }
  }
  return result;
}

Captured capturedFrom(const json& found) {
  Captured captured;
  found["lines"].get_to(captured.lines);
  found["texts"].get_to(captured.texts);
  found["trace"].get_to(captured.trace);
  found["calls"].get_to(captured.calls);
  found["errorFile"].get_to(captured.errorFile);
  found["errorText"].get_to(captured.errorText);
  found["managed"].get_to(captured.managedException);
  found["memory"].get_to(captured.memoryIssue);
  found["notes"].get_to(captured.notes);
  return captured;
}

}  // namespace

std::vector<std::string> Captured::output() const { return messagesFrom(*this, "stdOutRedirect"); }
std::vector<std::string> Captured::errors() const { return messagesFrom(*this, "stdErrRedirect"); }

std::string Captured::note(const std::string& name) const {
  const auto note = notes.find(name);
  return note == notes.end() ? "(no such note)" : note->second;
}

Captured inCaptureProcess(const std::function<void(Notes&)>& body) {
  std::array<int, 2> results{};
  if (pipe2(results.data(), O_CLOEXEC) != 0) {
    return {};
  }
  std::fflush(nullptr);  // or the child's capture gets what the test program has printed
  const pid_t child = fork();
  if (child == 0) {
    live(fcntl(results[1], F_DUPFD_CLOEXEC, kFirstDescriptor), body);
  }
  close(results[1]);
  const std::string text = readAll(results[0]);
  close(results[0]);
  const std::string ending = endingOf(child);
  Captured captured = text.empty() ? Captured{} : capturedFrom(json::parse(text));
  captured.ending = ending;
  return captured;
}

void put(int descriptor, const std::string& text) {
  for (size_t done = 0; done < text.size();) {
    const ssize_t count = write(descriptor, text.data() + done, text.size() - done);
    if (count <= 0) {
      return;
    }
    done += static_cast<size_t>(count);
  }
}

std::string fileBehind(int descriptor) {
  std::error_code closed;
  return fs::read_symlink("/proc/self/fd/" + std::to_string(descriptor), closed).string();
}

std::vector<std::string> threadNames() {
  std::vector<std::string> names;
  for (const auto& thread : fs::directory_iterator("/proc/self/task")) {
    std::string name;
    std::getline(std::ifstream(thread.path() / "comm") >> std::ws, name);
    names.push_back(name);
  }
  std::sort(names.begin(), names.end());
  return names;
}

void awaitEndOf(const std::string& thread) {
  const auto runs = [&] {
    const auto names = threadNames();
    return std::binary_search(names.begin(), names.end(), thread);
  };
  while (runs()) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

}  // namespace quillon::test
