#include "plugin/src/dotnet-policy-checker/dll_validation.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <new>
#include <optional>
#include <string>

#include "device_names.h"
#include "util/log/log.h"
#include "util/zq_utils/descriptor.h"
#include "util/zq_utils/files.h"
#include "util/zq_utils/paths.h"

namespace {

constexpr char kRequestPipe[] = QUILLON_DLL_REQUEST_PIPE;
constexpr char kAnswerPipe[] = QUILLON_DLL_ANSWER_PIPE;
constexpr char kAnyLabel[] = "*";
constexpr mode_t kCreateMode = 0644;
constexpr mode_t kOpenMode = 0666;  // chmod(2) ignores the umask
constexpr int kAnswerLines = 10;
constexpr std::size_t kTextSize = 1024;  // terminator included

// O_RDWR, so that opening a pipe does not wait for its other end, and so that the server sees no
// end of file when a client closes its end. O_NOFOLLOW, because any user can put a link into "/tmp"
// after isRealPath has found none.
constexpr int kOpenFlags = O_RDWR | O_NOFOLLOW | O_CLOEXEC;

const char* textOrEmpty(const char* text) { return text != nullptr ? text : ""; }

// Performs one read and returns the text without its line end; it can contain NUL bytes. Returns
// nullopt if the read failed, was interrupted by a signal, or returned no bytes.
std::optional<std::string> readText(int descriptor) {
  char buffer[kTextSize];
  ssize_t length = read(descriptor, buffer, sizeof(buffer) - 1);
  if (length <= 0) {
    return std::nullopt;
  }
  if (buffer[length - 1] == '\n') {
    --length;
  }
  return std::string(buffer, static_cast<std::size_t>(length));
}

// Returns false, after an error line, if the request pipe cannot be opened or written; no answer
// would arrive then. One write(2) transfers the request, so that no other request gets into it.
bool sendRequest(const std::string& path) {
  const Descriptor pipe(open(kRequestPipe, kOpenFlags));
  if (!pipe.isOpen()) {
    QLOG_ERROR_OF("plugin_validate_dll", "pipe open error");
    return false;
  }
  const std::string request =
      device_names::kValidationKeyword + std::to_string(getpid()) + ":" + path;
  QLOG_INFO_OF("plugin_validate_dll", "Send %s", request.c_str());
  const std::string line = request + "\n";
  if (!pipe.writeAll(line.data(), line.size())) {
    QLOG_ERROR_OF("plugin_validate_dll", "write error : %s", kRequestPipe);
    return false;
  }
  return true;
}

bool isAccepted(const std::string& answer) {
  QLOG_INFO_OF("plugin_validate_dll", "RequestForDllValidation Result : %s", answer.c_str());
  return answer.find(device_names::kValidationRefusal) == std::string::npos;
}

// Creates a pipe that processes of every user and every access label may use.
//
// Another process can put a file of its own, or a link, into the pipe's place before the pipe is
// created. The rights of that file, or of the link's target, must not change, so label and mode are
// set only on a file of our own. Nobody else can replace such a file, because the directory is
// sticky (inode(7)).
void createPipe(const char* path) {
  remove(path);
  if (mkfifo(path, kCreateMode) != 0) {
    QLOG_ERROR_OF("create_pipe_server", "mkfifo failed");
  }
  // With O_PATH, a FIFO is not opened for reading, which would let a waiting writer go on.
  const Descriptor pipe(open(path, O_PATH | O_NOFOLLOW | O_CLOEXEC));
  if (pipe.isOpen() && !pipe.isOwnFile()) {
    return;
  }
  // If the file could not be opened, `path` can lead to another file by now; pipe.path() leads
  // nowhere, so that both calls fail.
  setSmack(pipe.isOpen() ? path : pipe.path(), kAnyLabel);
  if (chmod(pipe.path().c_str(), kOpenMode) != 0) {
    QLOG_ERROR_OF("create_pipe_server", "chmod failed.");
  }
}

void serveRequests(int pipe) {
  while (const std::optional<std::string> text = readText(pipe)) {
    QLOG_INFO_OF("create_pipe_server", "Message To DllValidator : %s", text->c_str());
    if (g_callback != nullptr) {
      g_callback(text->c_str(), nullptr);
    }
  }
}

}  // namespace

pipe_message_changed_cb g_callback = nullptr;

int plugin_validate_dll(int type, const char* path) try {
  QLOG_SCOPE();
  const std::string asked = textOrEmpty(path);
  const std::string resolved = getAbsolutePath(asked);
  QLOG_INFO("Type %d : %s", type, asked.c_str());
  // A link could be changed between the answer and the load, so `path` itself must not be a link.
  if (!isRealPath(resolved) || !isRealPath(asked) || !isRealPath(kAnswerPipe) ||
      !isRealPath(kRequestPipe)) {
    return 0;
  }
  // Open the answer pipe before the request is sent.
  const Descriptor answers(open(kAnswerPipe, kOpenFlags));
  if (!answers.isOpen()) {
    QLOG_ERROR("open error : %s", kAnswerPipe);
    return 0;
  }
  if (!sendRequest(resolved)) {
    return 0;
  }
  const std::optional<std::string> answer = readText(answers.get());
  return answer.has_value() && isAccepted(*answer) ? 1 : 0;
} catch (const std::bad_alloc&) {
  QLOG_ERROR("Out of memory");
  return 0;
}

void create_pipe_server(pipe_message_changed_cb callback) try {
  QLOG_SCOPE();
  g_callback = callback;
  createPipe(kRequestPipe);
  createPipe(kAnswerPipe);
  if (!isRealPath(kRequestPipe)) {
    return;
  }
  const Descriptor requests(open(kRequestPipe, kOpenFlags));
  if (!requests.isOpen()) {
    QLOG_ERROR("open error : %s", kRequestPipe);
    return;
  }
  serveRequests(requests.get());
} catch (const std::bad_alloc&) {
  QLOG_ERROR("Out of memory");
}

void create_pipe_client(const char* message) try {
  QLOG_SCOPE();
  if (!isRealPath(kAnswerPipe)) {
    return;
  }
  const Descriptor pipe(open(kAnswerPipe, kOpenFlags));
  if (!pipe.isOpen()) {
    QLOG_ERROR("Fail to open pipe");
    return;
  }
  const std::string text = textOrEmpty(message);
  const std::string line = text + text + text + text + text + "\n";
  std::string answer;
  for (int written = 0; written < kAnswerLines; ++written) {
    answer += line;
  }
  // This function also holds the read end open, so a blocking write of more than the pipe can hold
  // might never return.
  if (static_cast<ssize_t>(answer.size()) > fcntl(pipe.get(), F_GETPIPE_SZ)) {
    fcntl(pipe.get(), F_SETFL, O_NONBLOCK);
  }
  pipe.writeAll(answer.data(), answer.size());
  QLOG_INFO("Send message : %s", text.c_str());
} catch (const std::bad_alloc&) {
  QLOG_ERROR("Out of memory");
}
