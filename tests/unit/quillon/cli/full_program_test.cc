#include "quillon/cli/front/full_program.h"

#include <gtest/gtest.h>

#include "quillon/base/exit_status.h"
#include "quillon/base/files.h"

namespace quillon::cli {
namespace {

TEST(FullProgram, IsBesideTheFolderOfTheRunningProgram) {
  const std::filesystem::path prefix = executablePath().parent_path().parent_path();
  EXPECT_EQ(fullProgram(), (prefix / "libexec/quillon").string());
}

TEST(FullProgram, IsAskedAboutNoLaunchByDefault) { EXPECT_FALSE(isDeclinedLaunch()); }

TEST(FullProgram, IsReportedIfItIsMissing) {
  std::string name = "quillon";
  char* arguments[] = {name.data(), nullptr};
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(runFullProgram("/no/such/folder/quillon", arguments, false), kServiceFailed);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "quillon: cannot execute '/no/such/folder/quillon': No such file or directory; install "
            "quillon again\n");
}

}  // namespace
}  // namespace quillon::cli
