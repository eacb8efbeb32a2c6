#include "quillon/validator/validator.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>

#include "quillon/base/descriptor.h"
#include "quillon/host/plugin/plugin_library.h"
#include "quillon/validator/answer_pipe.h"
#include "quillon/validator/asker.h"
#include "quillon/validator/decision.h"
#include "quillon/validator/request.h"
#include "workstation/last_errors.h"

namespace quillon::validator {
namespace {

namespace fs = std::filesystem;

// At most 20 bytes: five of them in each of ten lines are one read of the asker's.
constexpr char kYes[] = "OK";
constexpr char kNo[] = "FAIL";
constexpr char kMalformed[] = "FAIL malformed";

constexpr char kSecondValidator[] = "end that one first; a second one would take its pipes away";

// One line on the terminal, whatever bytes a request holds.
void say(const std::string& text) {
  std::string line;
  for (const char c : text) {
    const bool isControl = static_cast<unsigned char>(c) < ' ' || c == '\x7f';
    line += isControl ? '?' : c;
  }
  std::printf("%s\n", line.c_str());
  std::fflush(stdout);
}

std::string describe(const Request& request, const Decision& decision) {
  return (decision.allowed ? "allowed " : "refused ") + request.path + " to process " +
         std::to_string(request.process) + ": " + decision.reason;
}

// The writing end; none, with errno ENXIO, where no process reads the pipe.
Descriptor openRequestPipe() {
  return Descriptor(open(QUILLON_DLL_REQUEST_PIPE, O_WRONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
}

// Whether a launch waits for answers in its turn: only one does, and it holds the request pipe.
bool isTurnTaken() {
  const Descriptor pipe = openRequestPipe();
  return pipe && flock(pipe.get(), LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

// An answer to a launch that was interrupted would go to the next one, which is in its turn by
// then, and leave every later answer one request behind. Without turns any one that waits may take
// it: as many answers as requests leave nobody waiting.
bool isAbandoned(pid_t process) { return process > 0 && hasEnded(process) && isTurnTaken(); }

// The serving thread's side: one request text after the other.
class Desk {
 public:
  Desk(const Policy& policy, const host::PluginLibrary& plugin)
      : policy_(policy), plugin_(plugin) {}

  void take(const char* text) {
    for (const Request& request : reader_.take(text)) answer(request);
  }

 private:
  void answer(const Request& request) {
    if (!request.wrong.empty()) {
      say("malformed request '" + request.text + "': " + request.wrong);
      if (request.isRequest) send(request, kMalformed);
    } else {
      const Decision decision = decide(policy_, request.path);
      say(describe(request, decision));
      send(request, decision.allowed ? kYes : kNo);
    }
  }

  void send(const Request& request, const char* message) {
    const std::string process = "process " + std::to_string(request.process);
    switch (deliver([&] { plugin_.createPipeClient(message); },
                    [&] { return isAbandoned(request.process); })) {
      case Delivery::kTaken:
        return;
      case Delivery::kNobody:
        return say("not answered: nobody waits any more, " + process + " asked");
      case Delivery::kWithdrawn:
        return say("withdrawn: nobody took the answer to " + process);
      case Delivery::kNoPipe:
        return say("the answer pipe is gone; " + process + " was not answered");
    }
  }

  const Policy& policy_;
  const host::PluginLibrary& plugin_;
  RequestReader reader_;
};

Desk* desk = nullptr;  // the server's callback has no data of ours; lives as long as the process

void onRequest(const char* text, void* /*userData*/) { desk->take(text); }

// Whether somebody reads the request pipe: a server does from its first moment on.
bool isServed() {
  const Descriptor pipe = openRequestPipe();
  struct stat status {};
  return pipe && fstat(pipe.get(), &status) == 0 && S_ISFIFO(status.st_mode);
}

// Held until the process ends, so that of two that start at once one finds the other.
Expected<void> claimPipes() {
  const std::string folder = fs::path(QUILLON_DLL_REQUEST_PIPE).parent_path();
  Descriptor claim(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!claim) {
    return fail(kServiceFailed, {"cannot open '" + folder + "': " + std::strerror(errno),
                                 "make the folder readable"});
  }
  if (flock(claim.get(), LOCK_EX | LOCK_NB) != 0 || isServed()) {
    return fail(kValidatorState,
                {"a validator runs already in this device root", kSecondValidator});
  }
  claim.release();
  return {};
}

sigset_t endSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&signals, signal);
  return signals;
}

bool endWasAsked(std::chrono::milliseconds patience) {
  const sigset_t signals = endSignals();
  const timespec time{0, std::chrono::nanoseconds(patience).count()};
  return sigtimedwait(&signals, nullptr, &time) > 0;
}

// Libraries are compared by canonical paths, so an entry with a link in it would deny nothing.
Expected<void> checkDeniedPaths(const Policy& policy) {
  for (const std::string& path : policy.deniedPaths) {
    std::error_code error;
    const std::string canonical = fs::weakly_canonical(path, error).string();
    if (error) {
      return fail(kServiceFailed, {"cannot follow '" + path + "' of deny-paths: " + error.message(),
                                   "write the path of a folder or file that can be reached"});
    }
    if (canonical != path) {
      return fail(kServiceFailed,
                  {"'" + path + "' of deny-paths is '" + canonical + "' by a symbolic link",
                   "write '" + canonical + "' in the policy"});
    }
  }
  return {};
}

bool isPipe(const char* path) {
  struct stat status {};
  return lstat(path, &status) == 0 && S_ISFIFO(status.st_mode);
}

// Ours, since claimPipes() said so.
void removePipes() {
  for (const char* pipe : {QUILLON_DLL_REQUEST_PIPE, QUILLON_DLL_ANSWER_PIPE}) {
    if (isPipe(pipe)) unlink(pipe);
  }
}

tl::unexpected<Failure> serverEnded() {
  return fail(kServiceFailed,
              {"the plug-in's server ended; it logged: " + workstation::lastErrorMessage(),
               "see that " + fs::path(QUILLON_DLL_REQUEST_PIPE).parent_path().string() +
                   " of the device root can be written"});
}

// The server goes on without a pipe to answer through, and nobody would ever be answered.
tl::unexpected<Failure> noAnswerPipe() {
  return fail(kServiceFailed,
              {"the plug-in's server could not make '" QUILLON_DLL_ANSWER_PIPE "'; it logged: " +
                   workstation::lastErrorMessage(),
               "move what has that name in the device root away"});
}

// Until it is asked to end.
Expected<void> serveUntilAsked(const host::PluginLibrary& plugin) {
  static std::atomic<bool> ended = false;
  std::thread([server = plugin.createPipeServer] {
    server(onRequest);
    ended = true;
  }).detach();
  bool ready = false;
  for (bool asked = false; !asked;
       asked = endWasAsked(std::chrono::milliseconds(ready ? 200 : 1))) {
    if (ended) return serverEnded();
    if (!ready && isServed()) {
      if (!isPipe(QUILLON_DLL_ANSWER_PIPE)) return noAnswerPipe();
      ready = true;
      say("validator ready");
    }
  }
  return {};
}

}  // namespace

Expected<void> serve(const Policy& policy, const fs::path& file) {
  auto library = host::loadPlugin(file);
  if (!library) return fail(kNoPlugin, library.error());
  RETURN_IF_FAILED(checkDeniedPaths(policy));
  RETURN_IF_FAILED(claimPipes());
  static const host::PluginLibrary plugin = *library;
  static const Policy rules = policy;
  desk = new Desk(rules, plugin);
  // The serving thread inherits both.
  const sigset_t signals = endSignals();
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  signal(SIGPIPE, SIG_IGN);
  auto served = serveUntilAsked(plugin);
  removePipes();
  return served;
}

}  // namespace quillon::validator
