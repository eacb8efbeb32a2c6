// Parses the requests that create_pipe_server passes to its callback, docs/dll-validation.md:
//
//   RequestForDllValidation:<process id>:<path> NEWLINE
//
// A text of the server may contain several requests, and a long request may be split into several
// texts.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

namespace quillon::validator {

struct Request {
  std::string text;        // unchanged
  bool isRequest = false;  // false: the text lacks the keyword, so no process waits for an answer
  pid_t process = 0;       // of the requester; 0 if the text has no process id
  std::string path;        // absolute; empty if the request is malformed
  std::string wrong;       // what is malformed; else empty
};

// Parses one request without its line end. A line without the keyword counts as a part of the path
// of the request before it, which makes that request malformed.
[[nodiscard]] Request parseRequest(const std::string& text);

// Reassembles requests that are split over several texts of the server.
class RequestReader {
 public:
  // Returns the requests that are complete after another text of the server.
  [[nodiscard]] std::vector<Request> take(std::string_view text);

 private:
  std::string pending_;  // the beginning of an incomplete request
};

}  // namespace quillon::validator
