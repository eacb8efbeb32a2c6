#include "platform/vconf.h"

#include <cerrno>
#include <cstring>
#include <new>

#include "config/change_notifier.h"
#include "config/config_file.h"
#include "log/log_failure.h"

using quillon::Failure;
using quillon::workstation::ChangeNotifier;
using quillon::workstation::logFailure;
using quillon::workstation::readKey;

namespace {

int failed(const Failure& failure) {
  logFailure(failure);
  return -EIO;
}

}  // namespace

char* vconf_get_str(const char* key) try {
  if (key == nullptr) {
    return nullptr;
  }
  const auto value = readKey(key);
  if (!value) {
    failed(value.error());
  }
  if (!value || !*value) {
    return nullptr;
  }
  // A number is not converted to text: each key has a fixed type.
  const auto* text = std::get_if<std::string>(&**value);
  return text == nullptr ? nullptr : strdup(text->c_str());
} catch (const std::bad_alloc&) {
  return nullptr;
}

int vconf_notify_key_changed(const char* key, vconf_callback_fn cb, void* user_data) try {
  if (key == nullptr || cb == nullptr) {
    return -EINVAL;
  }
  const auto notifier = ChangeNotifier::start();
  if (!notifier) {
    return failed(notifier.error());
  }
  const auto added = (*notifier)->add(key, cb, user_data);
  return added ? 0 : failed(added.error());
} catch (const std::bad_alloc&) {
  return -ENOMEM;
}

int vconf_ignore_key_changed(const char* key, vconf_callback_fn cb) try {
  if (key == nullptr || cb == nullptr) {
    return -EINVAL;
  }
  ChangeNotifier* notifier = ChangeNotifier::started();
  return notifier != nullptr && notifier->remove(key, cb) ? 0 : -ENOENT;
} catch (const std::bad_alloc&) {
  return -ENOMEM;
}

int vconf_keynode_get_int(const keynode_t* node) {
  if (node == nullptr) {
    return 0;
  }
  const int* number = std::get_if<int>(&node->value);
  return number == nullptr ? 0 : *number;
}
