#include "plugin/src/plugin-util/published_app_id.h"

#include <algorithm>
#include <atomic>
#include <cstring>

namespace {

constexpr std::size_t kSize = 100;  // terminator included

char text[kSize] = {};
constinit std::atomic<const char*> published{nullptr};
static_assert(std::atomic<const char*>::is_always_lock_free, "signal handlers read it");

}  // namespace

void publishAppId(const char* id) {
  const std::size_t length = std::min(std::strlen(id), kSize - 1);
  std::memcpy(text, id, length);
  text[length] = '\0';
  published = text;
}

void withdrawAppId() { published = nullptr; }

const char* publishedAppId() { return published; }
