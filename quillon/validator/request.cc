#include "quillon/validator/request.h"

#include <algorithm>
#include <charconv>
#include <filesystem>

#include "device_names.h"

namespace quillon::validator {
namespace {

constexpr std::string_view kKeyword = device_names::kValidationKeyword;
// The maximum length of one read of the server. In a text of this length, the last request
// continues in the next text. A shorter text ends at the end of a client's write, whose line end
// the server has removed.
constexpr std::size_t kMaxText = 1023;
// A path has at most 4095 bytes, so a longer text is not a request.
constexpr std::size_t kMaxRequest = 8192;

Request malformed(Request request, std::string wrong) {
  request.wrong = std::move(wrong);
  request.path.clear();
  return request;
}

bool isPlainPath(std::string_view path) {
  return path.starts_with('/') && path == std::filesystem::path(path).lexically_normal().native() &&
         std::none_of(path.begin(), path.end(),
                      [](unsigned char c) { return c < ' ' || c == 127; });
}

}  // namespace

Request parseRequest(const std::string& text) {
  Request request{text, text.starts_with(kKeyword), 0, {}, {}};
  if (!request.isRequest) {
    return malformed(request, "does not begin with " + std::string(kKeyword));
  }
  const char* const end = text.data() + text.size();
  const auto [next, error] = std::from_chars(text.data() + kKeyword.size(), end, request.process);
  if (error != std::errc() || request.process <= 0 || next == end || *next != ':') {
    request.process = 0;
    return malformed(request, "has no process id");
  }
  request.path.assign(next + 1, end);
  if (!isPlainPath(request.path)) {
    return malformed(request, "has no absolute, canonical path");
  }
  return request;
}

std::vector<Request> RequestReader::take(std::string_view text) {
  pending_ += text;
  if (text.size() < kMaxText || pending_.size() > kMaxRequest) {
    pending_ += '\n';
  }
  std::vector<std::string> whole;
  std::size_t begin = 0;
  for (std::size_t end; (end = pending_.find('\n', begin)) != std::string::npos; begin = end + 1) {
    const std::string line = pending_.substr(begin, end - begin);
    if (whole.empty() || line.starts_with(kKeyword)) {
      whole.push_back(line);
    } else {
      whole.back() += '\n' + line;
    }
  }
  pending_.erase(0, begin);
  std::vector<Request> requests;
  std::transform(whole.begin(), whole.end(), std::back_inserter(requests), parseRequest);
  return requests;
}

}  // namespace quillon::validator
