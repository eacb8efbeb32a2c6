#include "plugin/src/dotnet-policy-checker/dll_validation.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <utility>

#include "util/log/log.h"
#include "util/zq_utils/descriptor.h"
#include "util/zq_utils/files.h"
#include "util/zq_utils/paths.h"

namespace {

constexpr char kRequestPipe[] = QUILLON_DLL_REQUEST_PIPE;
constexpr char kAnswerPipe[] = QUILLON_DLL_ANSWER_PIPE;
constexpr char kKeyword[] = "RequestForDllValidation:";
constexpr char kRefusal[] = "FAIL";
constexpr char kAnyLabel[] = "*";
constexpr mode_t kCreateMode = 0644;
constexpr mode_t kOpenMode = 0666;  // chmod(2) is not masked
constexpr int kAnswerLines = 10;
constexpr std::size_t kTextSize = 1024;  // terminator included

// fopen(3) reads and writes from the "+" on and passes over the "w": a pipe opened so never waits
// for its other end.
constexpr char kStreamMode[] = "rw+";

struct StreamCloser {
  void operator()(FILE* stream) const { fclose(stream); }
};
using Stream = std::unique_ptr<FILE, StreamCloser>;

// The stream's buffer takes the whole text, so that one write(2) carries it, up to what the pipe
// holds. False where the text could not be written.
bool writeAtOnce(Stream stream, const std::string& text) {
  const std::size_t room = text.size() + 1;
  const std::unique_ptr<char[]> buffer(new (std::nothrow) char[room]);
  if (buffer != nullptr) {
    setvbuf(stream.get(), buffer.get(), _IOFBF, room);
  }
  const bool isWritten =
      fwrite(text.data(), 1, text.size(), stream.get()) == text.size() && fflush(stream.get()) == 0;
  stream.reset();  // before the buffer goes
  return isWritten;
}

const char* textOrEmpty(const char* text) { return text != nullptr ? text : ""; }

// One read of a text, without its line end; it may hold NUL bytes. Nothing where the read failed or
// gave no bytes; a signal that comes in between counts as a failure.
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

// False where the request pipe cannot be opened or written: nobody would answer.
bool sendRequest(const std::string& path) {
  Stream pipe = openStream(kRequestPipe);
  if (pipe == nullptr) {
    QLOG_ERROR("pipe open error");
    return false;
  }
  const std::string request = kKeyword + std::to_string(getpid()) + ":" + path;
  QLOG_INFO("Send %s", request.c_str());
  return writeAtOnce(std::move(pipe), request + "\n");
}

bool isAccepted(const std::string& answer) {
  QLOG_INFO("RequestForDllValidation Result : %s", answer.c_str());
  return answer.find(kRefusal) == std::string::npos;
}

bool isLink(const char* path) {
  struct stat status;
  return lstat(path, &status) == 0 && S_ISLNK(status.st_mode);
}

// Any process may use the pipe, of whatever user and label.
void createPipe(const char* path) {
  remove(path);
  if (mkfifo(path, kCreateMode) != 0) {
    QLOG_ERROR("mkfifo failed");
  }
  // Whoever planted a link in the meantime may not open its target to everybody.
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
  // A link could lead elsewhere between the answer and the load, so the path asked is no link.
  if (!isRealPath(resolved) || !isRealPath(asked) || !isRealPath(kAnswerPipe) ||
      !isRealPath(kRequestPipe)) {
    return 0;
  }
  // Open for the answer before asking. Open for writing too, so that the open waits for no writer.
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
  // Open for writing too, so that a client that closes its end is no end of file.
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
  // The client reads the pipe itself, so a write of what the pipe cannot hold would never end.
  if (static_cast<ssize_t>(answer.size()) > fcntl(fileno(pipe.get()), F_GETPIPE_SZ)) {
    fcntl(fileno(pipe.get()), F_SETFL, O_NONBLOCK);
  }
  writeAtOnce(std::move(pipe), answer);
  QLOG_INFO("Send message : %s", text.c_str());
}
