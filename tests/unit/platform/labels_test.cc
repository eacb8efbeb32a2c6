#include <gtest/gtest.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "platform/smack.h"
#include "tests/support/program.h"
#include "tests/support/skip.h"
#include "tests/support/temporary_directory.h"

namespace quillon::test {
namespace {

class LabelTest : public ::testing::Test {
 protected:
  void SetUp() override {
    writeFile(file, "");
    ASSERT_EQ(symlink("file", link.c_str()), 0);
  }
  void needLabels() {
    if (setxattr(file.c_str(), "security.SMACK64MMAP", "x", 1, 0) != 0) {
      QUILLON_SKIP("labels cannot be set here: " << std::strerror(errno));
    }
    removexattr(file.c_str(), "security.SMACK64MMAP");
  }
  static std::optional<std::string> attribute(const std::string& path, const char* name) {
    char value[256];
    const ssize_t length = lgetxattr(path.c_str(), name, value, sizeof value);
    if (length < 0) {
      return std::nullopt;
    }
    return std::string(value, static_cast<size_t>(length));
  }
  // Returns the label, "none" or "failed".
  static std::string label(decltype(smack_getlabel) get, const std::string& path,
                           smack_label_type type) {
    char* text = nullptr;
    if (get(path.c_str(), &text, type) != 0) {
      return "failed";
    }
    const std::string result = text == nullptr ? "none" : text;
    std::free(text);
    return result;
  }

  TemporaryDirectory folder;
  const std::string file = (folder.path() / "file").string();
  const std::string link = (folder.path() / "link").string();
};

TEST_F(LabelTest, EachTypeHasItsOwnAttribute) {
  needLabels();
  if (IsSkipped()) {
    return;
  }
  const std::pair<smack_label_type, const char*> types[] = {
      {SMACK_LABEL_ACCESS, "security.SMACK64"},
      {SMACK_LABEL_EXEC, "security.SMACK64EXEC"},
      {SMACK_LABEL_MMAP, "security.SMACK64MMAP"},
      {SMACK_LABEL_TRANSMUTE, "security.SMACK64TRANSMUTE"}};
  for (const auto& [type, name] : types) {
    EXPECT_EQ(label(smack_getlabel, file, type), "none") << name;
    EXPECT_EQ(smack_setlabel(file.c_str(), name, type), 0) << name;
    EXPECT_EQ(attribute(file, name), name);
    EXPECT_EQ(label(smack_getlabel, file, type), name);
  }
}

TEST_F(LabelTest, OnlyTheLinkFunctionsActOnALink) {
  needLabels();
  if (IsSkipped()) {
    return;
  }
  EXPECT_EQ(smack_setlabel(link.c_str(), "target", SMACK_LABEL_ACCESS), 0);
  EXPECT_EQ(attribute(file, "security.SMACK64"), "target");
  EXPECT_EQ(attribute(link, "security.SMACK64"), std::nullopt);
  EXPECT_EQ(smack_lsetlabel(link.c_str(), "link", SMACK_LABEL_ACCESS), 0);
  EXPECT_EQ(attribute(link, "security.SMACK64"), "link");
  EXPECT_EQ(label(smack_getlabel, link, SMACK_LABEL_ACCESS), "target");
  EXPECT_EQ(label(smack_lgetlabel, link, SMACK_LABEL_ACCESS), "link");
}

TEST_F(LabelTest, AMissingLabelIsNotAFailure) {
  EXPECT_EQ(label(smack_getlabel, file, SMACK_LABEL_EXEC), "none");
  EXPECT_EQ(label(smack_lgetlabel, link, SMACK_LABEL_EXEC), "none");
  EXPECT_EQ(label(smack_getlabel, "/proc/self/status", SMACK_LABEL_EXEC), "none");
}

TEST_F(LabelTest, ThatHaveNoEffectMayBeSetByAnyUser) {
  if (access("/sys/fs/smackfs", F_OK) == 0) {
    QUILLON_SKIP("this kernel enforces labels");
  }
  const pid_t child = fork();
  if (child == 0) {
    const bool isOrdinary = geteuid() != 0 || setuid(54321) == 0;
    const bool isSet = smack_setlabel("/usr/bin/env", "*", SMACK_LABEL_ACCESS) == 0 &&
                       smack_lsetlabel("/usr", "*", SMACK_LABEL_ACCESS) == 0;
    _exit(isOrdinary && isSet ? 0 : 1);
  }
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
}

TEST_F(LabelTest, FailsWithErrno) {
  char* text = file.empty() ? nullptr : const_cast<char*>("untouched");
  EXPECT_EQ(smack_setlabel("/nowhere", "x", SMACK_LABEL_ACCESS), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(smack_getlabel("/nowhere", &text, SMACK_LABEL_ACCESS), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(text, nullptr);
}

TEST_F(LabelTest, RejectsInvalidLabels) {
  const std::string longest(255, 'l');
  for (const std::string& bad : {std::string(), longest + "l"}) {
    EXPECT_EQ(smack_setlabel(file.c_str(), bad.c_str(), SMACK_LABEL_ACCESS), -1);
    EXPECT_EQ(errno, EINVAL);
  }
  EXPECT_EQ(smack_setlabel(nullptr, "x", SMACK_LABEL_ACCESS), -1);
  EXPECT_EQ(smack_setlabel(file.c_str(), nullptr, SMACK_LABEL_ACCESS), -1);
  EXPECT_EQ(smack_setlabel(file.c_str(), "x", static_cast<smack_label_type>(4)), -1);
  EXPECT_EQ(smack_getlabel(file.c_str(), nullptr, SMACK_LABEL_ACCESS), -1);
}

}  // namespace
}  // namespace quillon::test
