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

#include "device_names.h"
#include "quillon/base/descriptor.h"
#include "quillon/host/plugin/plugin_library.h"
#include "quillon/validator/answer_pipe.h"
#include "quillon/validator/decision.h"
#include "quillon/validator/request.h"
#include "quillon/validator/requester.h"
#include "workstation/last_errors.h"

namespace quillon::validator {
namespace {

namespace fs = std::filesystem;

// At most 20 bytes, so that even fifty of them, five in each of ten lines, fit into one read of the
// requester.
constexpr char kYes[] = "OK";
constexpr const char* kNo = device_names::kValidationRefusal;
constexpr char kMalformed[] = "FAIL malformed";

constexpr char kSecondValidator[] = "stop it first; a second validator would remove its pipes";

// Prints one line to standard output. Replaces control characters, since a request may contain any
// bytes.
void printLine(const std::string& text) {
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

// Opens the write end. Fails with ENXIO if no process has the pipe open for reading.
Descriptor openRequestPipe() {
  return Descriptor(open(QUILLON_DLL_REQUEST_PIPE, O_WRONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
}

// Whether a launch waits for answers. Launches take turns: a launch locks the request pipe while it
// waits.
bool isTurnTaken() {
  const Descriptor pipe = openRequestPipe();
  return pipe && flock(pipe.get(), LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

// Whether to withhold the answer to a requester that has ended. If another launch has taken its
// turn since, that launch would read the answer, and every later answer would be one request late.
// Without turns, any waiting process may read it, so every request must get an answer.
bool isAbandoned(pid_t process) { return process > 0 && hasEnded(process) && isTurnTaken(); }

// Handles the requests, in the serving thread.
class RequestHandler {
 public:
  RequestHandler(const Policy& policy, const host::PluginLibrary& plugin)
      : policy_(policy), plugin_(plugin) {}

  void handle(const char* text) {
    for (const Request& request : reader_.take(text)) {
      answer(request);
    }
  }

 private:
  void answer(const Request& request) {
    if (!request.wrong.empty()) {
      printLine("malformed request '" + request.text + "': " + request.wrong);
      if (request.isRequest) {
        send(request, kMalformed);
      }
    } else {
      const Decision decision = decide(policy_, request.path);
      printLine(describe(request, decision));
      send(request, decision.allowed ? kYes : kNo);
    }
  }

  void send(const Request& request, const char* message) {
    const std::string process = "process " + std::to_string(request.process);
    switch (deliver([&] { plugin_.createPipeClient(message); },
                    [&] { return isAbandoned(request.process); })) {
      case Delivery::kRead:
        return;
      case Delivery::kNoReader:
        return printLine("not answered: " + process + " no longer waits");
      case Delivery::kDiscarded:
        return printLine("discarded: no process read the answer to " + process);
      case Delivery::kNoPipe:
        return printLine("not answered: the answer pipe of " + process + " is gone");
    }
  }

  const Policy& policy_;
  const host::PluginLibrary& plugin_;
  RequestReader reader_;
};

// Global, since the server passes no user data to its callback. Never deleted.
RequestHandler* requestHandler = nullptr;

void onRequest(const char* text, void* /*userData*/) { requestHandler->handle(text); }

// Whether a process has the request pipe open for reading. A server does from its start.
bool isServed() {
  const Descriptor pipe = openRequestPipe();
  struct stat status {};
  return pipe && fstat(pipe.get(), &status) == 0 && S_ISFIFO(status.st_mode);
}

// Locks the folder until the process ends, so that of two validators that start at once one fails.
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
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    sigaddset(&signals, signal);
  }
  return signals;
}

bool endRequested(std::chrono::milliseconds timeout) {
  const sigset_t signals = endSignals();
  const timespec time{0, static_cast<long>(std::chrono::nanoseconds(timeout).count())};
  return sigtimedwait(&signals, nullptr, &time) > 0;
}

// Fails if a denied path contains a symbolic link: it would deny nothing, since the paths of
// libraries are canonical.
Expected<void> checkDeniedPaths(const Policy& policy) {
  for (const std::string& path : policy.deniedPaths) {
    std::error_code error;
    const std::string canonical = fs::weakly_canonical(path, error).string();
    if (error) {
      return fail(kServiceFailed,
                  {"cannot resolve '" + path + "' of deny-paths: " + error.message(),
                   "write the path of a reachable folder or file"});
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

// After claimPipes(), the pipes are ours.
void removePipes() {
  for (const char* pipe : {QUILLON_DLL_REQUEST_PIPE, QUILLON_DLL_ANSWER_PIPE}) {
    if (isPipe(pipe)) {
      unlink(pipe);
    }
  }
}

tl::unexpected<Failure> serverEnded() {
  return fail(kServiceFailed,
              {"the plug-in's server ended; it logged: " + workstation::lastErrorMessage(),
               "make " + fs::path(QUILLON_DLL_REQUEST_PIPE).parent_path().string() +
                   " of the device root writable"});
}

// The server continues to run without an answer pipe, but no request would be answered.
tl::unexpected<Failure> noAnswerPipe() {
  return fail(kServiceFailed,
              {"the plug-in's server could not create '" QUILLON_DLL_ANSWER_PIPE "'; it logged: " +
                   workstation::lastErrorMessage(),
               "move the file of that name in the device root away"});
}

// Serves until a signal requests the end.
Expected<void> serveUntilSignal(const host::PluginLibrary& plugin) {
  static std::atomic<bool> ended = false;
  std::thread([server = plugin.createPipeServer] {
    server(onRequest);
    ended = true;
  }).detach();
  bool ready = false;
  for (bool requested = false; !requested;
       requested = endRequested(std::chrono::milliseconds(ready ? 200 : 1))) {
    if (ended) {
      return serverEnded();
    }
    if (!ready && isServed()) {
      if (!isPipe(QUILLON_DLL_ANSWER_PIPE)) {
        return noAnswerPipe();
      }
      ready = true;
      printLine("validator ready");
    }
  }
  return {};
}

}  // namespace

Expected<void> serve(const Policy& policy, const fs::path& file) {
  ASSIGN_OR_RETURN(const host::PluginLibrary library,
                   withStatus(kNoPlugin, host::loadPlugin(file)));
  RETURN_IF_FAILED(checkDeniedPaths(policy));
  RETURN_IF_FAILED(claimPipes());
  static const host::PluginLibrary plugin = library;
  static const Policy rules = policy;
  requestHandler = new RequestHandler(rules, plugin);
  // The serving thread inherits the signal mask and the disposition of SIGPIPE.
  const sigset_t signals = endSignals();
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  signal(SIGPIPE, SIG_IGN);
  auto served = serveUntilSignal(plugin);
  removePipes();
  return served;
}

}  // namespace quillon::validator
