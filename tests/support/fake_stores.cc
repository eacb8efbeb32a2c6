// The configuration store and access labels, in memory.
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/smack.h"
#include "platform/vconf.h"
#include "tests/support/platform_recorder.h"

struct keynode_s {
  int value;
};

using quillon::test::platform;
using quillon::test::record;
using quillon::test::textOf;

namespace quillon::test {
namespace {

using Labels = std::map<std::string, std::string>;

int setLabel(int failure, Labels& labels, const char* path, const char* label) {
  if (failure != 0) {
    errno = EPERM;
    return failure;
  }
  labels[path] = label;
  return 0;
}

int getLabel(int failure, const Labels& labels, const char* path, char** label) {
  if (failure != 0) {
    errno = EPERM;
    return failWithGarbage(failure, label);
  }
  const auto entry = labels.find(path);
  *label = entry == labels.end() ? nullptr : strdup(entry->second.c_str());
  return 0;
}

}  // namespace

int RecordingPlatform::changeKey(const std::string& key, int value) {
  const std::vector<KeyWatch> before = watches;
  keynode_t node{value};
  int called = 0;
  for (const KeyWatch& watch : before) {
    if (watch.key == key) {
      watch.callback(&node, watch.userData);
      ++called;
    }
  }
  return called;
}

}  // namespace quillon::test

extern "C" {

char* vconf_get_str(const char* key) {
  const int failure = record(__func__, {textOf(key)});
  const auto entry = platform().config.find(key);
  const bool absent = failure != 0 || entry == platform().config.end();
  return absent ? nullptr : strdup(entry->second.c_str());
}

int vconf_notify_key_changed(const char* key, vconf_callback_fn cb, void* user_data) {
  const int failure = record(__func__, {textOf(key)});
  if (failure == 0) {
    platform().watches.push_back({key, cb, user_data});
  }
  return failure;
}

int vconf_ignore_key_changed(const char* key, vconf_callback_fn cb) {
  const int failure = record(__func__, {textOf(key)});
  if (failure != 0) {
    return failure;
  }
  const auto gone = std::erase_if(platform().watches, [&](const auto& watch) {
    return watch.key == key && watch.callback == cb;
  });
  return gone > 0 ? 0 : quillon::test::kFailed;
}

int vconf_keynode_get_int(const keynode_t* node) {
  record(__func__, {});
  return node->value;
}

int smack_setlabel(const char* path, const char* label, enum smack_label_type type) {
  const int failure = record(__func__, {textOf(path), textOf(label), std::to_string(type)});
  return quillon::test::setLabel(failure, platform().labels, path, label);
}

int smack_lsetlabel(const char* path, const char* label, enum smack_label_type type) {
  const int failure = record(__func__, {textOf(path), textOf(label), std::to_string(type)});
  return quillon::test::setLabel(failure, platform().linkLabels, path, label);
}

int smack_getlabel(const char* path, char** label, enum smack_label_type type) {
  const int failure = record(__func__, {textOf(path), std::to_string(type)});
  return quillon::test::getLabel(failure, platform().labels, path, label);
}

int smack_lgetlabel(const char* path, char** label, enum smack_label_type type) {
  const int failure = record(__func__, {textOf(path), std::to_string(type)});
  return quillon::test::getLabel(failure, platform().linkLabels, path, label);
}

}  // extern "C"
