#include "plugin/src/plugin-util/published_app_id.h"

#include <algorithm>
#include <atomic>
#include <cstring>

namespace {

constexpr std::size_t kSize = 100;  // terminator included

// The published string is never written. A new id goes into the other one.
char texts[2][kSize] = {};
constinit std::atomic<const char*> published{texts[0]};
static_assert(std::atomic<const char*>::is_always_lock_free, "signal handlers read it");

}  // namespace

void publishAppId(const char* id) {
  char* const text = published == texts[0] ? texts[1] : texts[0];
  const std::size_t length = std::min(std::strlen(id), kSize - 1);
  std::memcpy(text, id, length);
  text[length] = '\0';
  published = text;
}

const char* publishedAppId() { return published; }
