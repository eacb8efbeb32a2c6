// Requests as they come out of create_pipe_server, docs/dll-validation.md:
//
//   RequestForDllValidation:<process id>:<path> NEWLINE
//
// A text of the server may hold several requests, and a long one may come in several texts.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

namespace quillon::validator {

struct Request {
  std::string text;  // as it came
  // Who asks; 0 where no number can be read. Nobody waits for an answer to a text that does not
  // begin as a request.
  bool isRequest = false;
  pid_t process = 0;
  std::string path;   // absolute; empty where the request is malformed
  std::string wrong;  // what is malformed; else empty
};

// Reads one request, without its line end. A line without the keyword that follows a request
// belongs to that one's path, which makes it malformed.
[[nodiscard]] Request parseRequest(const std::string& text);

// Puts together what the server's reads took apart.
class RequestReader {
 public:
  // The requests that are whole after one more text of the server.
  [[nodiscard]] std::vector<Request> take(std::string_view text);

 private:
  std::string pending_;  // of a request whose end has not come yet
};

}  // namespace quillon::validator
