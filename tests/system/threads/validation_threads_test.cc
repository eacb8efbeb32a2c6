// Several threads of an application validate libraries at the same time, without a lock.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "quillon_tv_plugin.h"
#include "tests/support/signing_key.h"
#include "tests/system/threads/own_folder.h"
#include "workstation/config_store.h"

namespace quillon::test {
namespace {

constexpr char kGood[] = "/tmp/good.dll";
constexpr char kBad[] = "/tmp/bad.dll";
constexpr int kRequests = 200;  // for each thread
constexpr int kChecks = 20;

template <typename Function>
Function* exported(const char* name) {
  static void* const plugin = dlopen(QUILLON_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
  return plugin == nullptr ? nullptr : reinterpret_cast<Function*>(dlsym(plugin, name));
}
#define EXPORTED(name) exported<decltype(name)>(#name)

// One thread could read two answers from the pipe at once, so this writes one at a time.
void waitUntilRead() {
  static const int answers = open(QUILLON_DLL_ANSWER_PIPE, O_RDWR | O_CLOEXEC);
  for (int unread = 1; unread > 0;) {
    ioctl(answers, FIONREAD, &unread);
    if (unread > 0) {
      std::this_thread::yield();
    }
  }
}

// The validator. A read may return several requests; short requests are never split.
void answer(const char* text, void*) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    EXPORTED(create_pipe_client)(line.ends_with(kGood) ? "OK" : "FAIL");
    waitUntilRead();
  }
}

bool isServed() {
  const int pipe = open(QUILLON_DLL_REQUEST_PIPE, O_WRONLY | O_NONBLOCK | O_CLOEXEC);
  if (pipe >= 0) {
    close(pipe);
  }
  return pipe >= 0;
}

class ValidationThreads : public OwnFolderTest {};

TEST_F(ValidationThreads, EachRequestHasOneAnswer) {
  ASSERT_NE(EXPORTED(plugin_validate_dll), nullptr) << dlerror();
  inOwn({"/tmp"}, [] {
    for (const char* library : {kGood, kBad}) {
      std::ofstream(library) << "x";
    }
    std::thread([] { EXPORTED(create_pipe_server)(answer); }).detach();
    while (!isServed()) {
      std::this_thread::yield();
    }
    std::atomic<int> yes = 0;
    std::atomic<int> no = 0;
    std::vector<std::thread> threads;
    for (const char* library : {kGood, kBad, kGood, kGood}) {
      threads.emplace_back([&yes, &no, library] {
        for (int question = 0; question < kRequests; ++question) {
          ++(EXPORTED(plugin_validate_dll)(question, library) == 1 ? yes : no);
        }
      });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
    EXPECT_EQ(yes, 3 * kRequests);
    EXPECT_EQ(no, kRequests);
  });
}

void putFile(const std::filesystem::path& file, const std::string& content) {
  std::filesystem::create_directories(file.parent_path());
  std::ofstream(file, std::ios::binary) << content;
}

// A partner package for the device ID1.
void putPackage(const std::string& folder, const std::string& signature) {
  putFile(folder + "/" QUILLON_PARTNER_REQUEST, "ID1:");
  putFile(folder + "/" QUILLON_PARTNER_SIGNATURE, signature);
}

TEST_F(ValidationThreads, EachSignatureHasItsOwnResult) {
  ASSERT_NE(EXPORTED(check_signature), nullptr) << dlerror();
  inOwn({"/opt", "/usr/bin"}, [] {
    const SigningKey key = SigningKey::rsa();
    putFile(QUILLON_PARTNER_PUBLIC_KEY, key.publicPem());
    putPackage("/opt/good", key.sign("ID1:"));
    putPackage("/opt/bad", key.sign("ID2:"));
    ASSERT_TRUE(workstation::setConfig(QUILLON_PARTNER_DUID_KEY, std::string("ID1")));
    std::atomic<int> wrong = 0;
    std::vector<std::thread> threads;
    for (const std::string package : {"good", "bad", "good", "bad"}) {
      threads.emplace_back([&wrong, package] {
        for (int check = 0; check < kChecks; ++check) {
          const bool allowed = EXPORTED(check_signature)(("/opt/" + package).c_str());
          if (allowed != (package == "good")) {
            ++wrong;
          }
        }
      });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
    EXPECT_EQ(wrong, 0);
  });
}

}  // namespace
}  // namespace quillon::test
