#include "plugin/src/dotnet-policy-checker/dll_validation.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <utility>

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

// "+" opens for reading and writing, so that opening a pipe never waits for the other end. fopen(3)
// ignores the "w" after "r".
constexpr char kStreamMode[] = "rw+";

struct StreamCloser {
  void operator()(FILE* stream) const { fclose(stream); }
};
using Stream = std::unique_ptr<FILE, StreamCloser>;

// Gives the stream a buffer for the whole text, so that one write(2) transfers as much of it as the
// pipe can hold. Returns false if the text could not be written.
bool writeAtOnce(Stream stream, const std::string& text) {
  const std::size_t room = text.size() + 1;
  const std::unique_ptr<char[]> buffer(new (std::nothrow) char[room]);
  if (buffer != nullptr) {
    setvbuf(stream.get(), buffer.get(), _IOFBF, room);
  }
  const bool isWritten =
      fwrite(text.data(), 1, text.size(), stream.get()) == text.size() && fflush(stream.get()) == 0;
  stream.reset();  // before the buffer is freed
  return isWritten;
}

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

Stream openStream(const char* path) {
  Stream stream(fopen(path, kStreamMode));
  if (stream != nullptr) {
    fcntl(fileno(stream.get()), F_SETFD, FD_CLOEXEC);
  }
  return stream;
}

// Returns false if the request pipe cannot be opened or written; no answer would arrive then.
bool sendRequest(const std::string& path) {
  Stream pipe = openStream(kRequestPipe);
  if (pipe == nullptr) {
    QLOG_ERROR("pipe open error");
    return false;
  }
  const std::string request =
      device_names::kValidationKeyword + std::to_string(getpid()) + ":" + path;
  QLOG_INFO("Send %s", request.c_str());
  return writeAtOnce(std::move(pipe), request + "\n");
}

bool isAccepted(const std::string& answer) {
  QLOG_INFO("RequestForDllValidation Result : %s", answer.c_str());
  return answer.find(device_names::kValidationRefusal) == std::string::npos;
}

bool isLink(const char* path) {
  struct stat status;
  return lstat(path, &status) == 0 && S_ISLNK(status.st_mode);
}

// Creates a pipe that processes of every user and every access label may use.
void createPipe(const char* path) {
  remove(path);
  if (mkfifo(path, kCreateMode) != 0) {
    QLOG_ERROR("mkfifo failed");
  }
  // If another process has replaced the pipe by a link in the meantime, the access rights of its
  // target must not change.
  if (isLink(path)) {
    return;
  }
  setSmack(path, kAnyLabel);
  if (chmod(path, kOpenMode) != 0) {
    QLOG_ERROR("chmod failed.");
  }
}

void serveRequests(int pipe) {
  while (const std::optional<std::string> text = readText(pipe)) {
    QLOG_INFO("Message To DllValidator : %s", text->c_str());
    if (g_callback != nullptr) {
      g_callback(text->c_str(), nullptr);
    }
  }
}

}  // namespace

pipe_message_changed_cb g_callback = nullptr;

int plugin_validate_dll(int type, const char* path) {
  QLOG_SCOPE();
  const std::string asked = textOrEmpty(path);
  const std::string resolved = getAbsolutePath(asked);
  QLOG_INFO("Type %d : %s", type, asked.c_str());
  // A link could be changed between the answer and the load, so `path` itself must not be a link.
  if (!isRealPath(resolved) || !isRealPath(asked) || !isRealPath(kAnswerPipe) ||
      !isRealPath(kRequestPipe)) {
    return 0;
  }
  // Open the answer pipe before the request is sent. O_RDWR, so that open(2) does not wait for a
  // writer.
  const Descriptor answers(open(kAnswerPipe, O_RDWR | O_CLOEXEC));
  if (!answers.isOpen()) {
    QLOG_ERROR("open error : %s", kAnswerPipe);
    return 0;
  }
  if (!sendRequest(resolved)) {
    return 0;
  }
  const std::optional<std::string> answer = readText(answers.get());
  return answer.has_value() && isAccepted(*answer) ? 1 : 0;
}

void create_pipe_server(pipe_message_changed_cb callback) {
  QLOG_SCOPE();
  g_callback = callback;
  createPipe(kRequestPipe);
  createPipe(kAnswerPipe);
  if (!isRealPath(kRequestPipe)) {
    return;
  }
  // O_RDWR, so that a client that closes its end does not cause an end of file.
  const Descriptor requests(open(kRequestPipe, O_RDWR | O_CLOEXEC));
  if (!requests.isOpen()) {
    QLOG_ERROR("open error : %s", kRequestPipe);
    return;
  }
  serveRequests(requests.get());
}

void create_pipe_client(const char* message) {
  QLOG_SCOPE();
  if (!isRealPath(kAnswerPipe)) {
    return;
  }
  Stream pipe = openStream(kAnswerPipe);
  if (pipe == nullptr) {
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
  if (static_cast<ssize_t>(answer.size()) > fcntl(fileno(pipe.get()), F_GETPIPE_SZ)) {
    fcntl(fileno(pipe.get()), F_SETFL, O_NONBLOCK);
  }
  writeAtOnce(std::move(pipe), answer);
  QLOG_INFO("Send message : %s", text.c_str());
}
