// Runs tests of root as an ordinary user.
#pragma once

#include <grp.h>
#include <stdlib.h>
#include <unistd.h>

#include <optional>
#include <string>
#include <vector>

#include "tests/support/skip.h"
#include "tests/system/launch/sample_device.h"

namespace quillon::test {

inline constexpr uid_t kOrdinaryUser = 54321;

// Runs the test as an ordinary user as long as the object lives. Programs that it starts cannot
// become root again, because exec() replaces the saved user id by the effective one.
class OrdinaryUser {
 public:
  OrdinaryUser() : groups_(static_cast<size_t>(getgroups(0, nullptr))) {
    groups_.resize(
        static_cast<size_t>(getgroups(static_cast<int>(groups_.size()), groups_.data())));
    switched_ = setgroups(0, nullptr) == 0 && setresgid(kOrdinaryUser, kOrdinaryUser, 0) == 0 &&
                setresuid(kOrdinaryUser, kOrdinaryUser, 0) == 0;
  }
  ~OrdinaryUser() {
    if (setresuid(0, 0, 0) != 0 || setresgid(0, 0, 0) != 0 ||
        setgroups(groups_.size(), groups_.data()) != 0) {
      abort();
    }
  }
  OrdinaryUser(const OrdinaryUser&) = delete;
  OrdinaryUser& operator=(const OrdinaryUser&) = delete;

  [[nodiscard]] bool switched() const { return switched_; }

 private:
  std::vector<gid_t> groups_;
  bool switched_ = false;
};

// Puts the test's temporary files into that folder, as long as the object lives. By TMP, which
// nothing but std::filesystem::temp_directory_path() reads: TMPDIR would change the launches.
class TemporaryFilesIn {
 public:
  explicit TemporaryFilesIn(const std::string& folder) {
    if (const char* before = getenv("TMP")) {
      before_ = before;
    }
    setenv("TMP", folder.c_str(), 1);
  }
  ~TemporaryFilesIn() {
    if (before_) {
      setenv("TMP", before_->c_str(), 1);
    } else {
      unsetenv("TMP");
    }
  }
  TemporaryFilesIn(const TemporaryFilesIn&) = delete;
  TemporaryFilesIn& operator=(const TemporaryFilesIn&) = delete;

 private:
  std::optional<std::string> before_;
};

// The tests of the fixture `Test`, a LaunchTest, as an ordinary user.
template <typename Test>
class AsOrdinaryUser : public Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0) {
      QUILLON_SKIP("needs root; without root, the other tests cover an ordinary user");
    }
    const std::string folder = this->fresh("").string();
    ASSERT_EQ(chown(folder.c_str(), kOrdinaryUser, kOrdinaryUser), 0);
    files_.emplace(folder);  // the user may have no right to write to /tmp
    user_.emplace();
    ASSERT_TRUE(user_->switched());
    // Depends on the location of the build, not on the machine.
    if (access(QUILLON_BUILD_DIRECTORY "/bin/quillon", X_OK) != 0) {
      GTEST_SKIP() << "the build folder is not accessible to ordinary users";
    }
    Test::SetUp();
  }

 private:
  std::optional<OrdinaryUser> user_;
  std::optional<TemporaryFilesIn> files_;
};

}  // namespace quillon::test
