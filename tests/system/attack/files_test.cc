// Files of another kind or of any size where the program expects a regular file. Each command must
// end, and use no more memory than kMemoryLimitKb.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "tests/support/program.h"
#include "tests/support/sanitized.h"
#include "tests/system/device_root/inside.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::AnyOf;
using ::testing::HasSubstr;

constexpr char kKey[] = "db/dotnet/velora_api_path";
constexpr char kKeyFile[] = "opt/usr/share/quillon/config/db/dotnet/velora_api_path";
// Of the address space, so that a file that is read without a limit makes the command fail.
constexpr int kMemoryLimitKb = 1'000'000;
constexpr int kTimedOut = 124;  // see timeout(1)

constexpr char kFifo[] = "Fifo";
constexpr char kLinkToDevice[] = "LinkToDevice";
constexpr char kSparseFile[] = "SparseFile";

void makeFile(const std::string& kind, const fs::path& file) {
  if (kind == kFifo) {
    ASSERT_EQ(mkfifo(file.c_str(), 0666), 0);
  } else if (kind == kLinkToDevice) {
    fs::create_symlink("/dev/zero", file);
  } else {
    writeFile(file.string(), "");
    fs::resize_file(file, std::uintmax_t{1} << 40);
  }
}

class PlantedFile : public DeviceRootTest, public ::testing::WithParamInterface<std::string> {
 protected:
  // Plants the file in the device root. Returns its path on the machine.
  fs::path plant(const std::string& name) {
    fs::path file = root_ / name;
    fs::create_directories(file.parent_path());
    fs::remove(file);
    makeFile(GetParam(), file);
    return file;
  }
  Finished quillon(const std::vector<std::string>& arguments,
                   const std::map<std::string, std::string>& variables = {}) const {
    // The address sanitizer reserves more memory than the limit allows.
    const std::string limit = isSanitized() ? "" : "ulimit -v " + std::to_string(kMemoryLimitKb);
    std::vector<std::string> command = {"/usr/bin/timeout",      "30", "/bin/sh",   "-c",
                                        limit + "\nexec \"$@\"", "sh", QUILLON_TOOL};
    command.insert(command.end(), arguments.begin(), arguments.end());
    Finished finished = run(command, variables);
    EXPECT_NE(finished.status, kTimedOut);
    EXPECT_LT(finished.status, 128) << finished.err;  // no signal
    return finished;
  }
};

TEST_P(PlantedFile, InPlaceOfAConfigurationKeyIsReportedAndReplaced) {
  plant(kKeyFile);
  const Finished got = quillon({"config", "get", "--device", root_, kKey});
  EXPECT_NE(got.status, 0);
  EXPECT_THAT(got.err, HasSubstr("cannot read the configuration file"));
  EXPECT_THAT(got.err, AnyOf(HasSubstr("not a regular file"), HasSubstr("larger than 1 MiB")));
  EXPECT_EQ(quillon({"config", "set", "--device", root_, kKey, "10.1"}).status, 0);
  EXPECT_EQ(quillon({"config", "get", "--device", root_, kKey}).out, "10.1\n");
}

TEST_P(PlantedFile, AsTheRecordOfADeviceRootIsReported) {
  plant(".quillon/device.toml");
  const Finished got = quillon({"config", "get", "--device", root_, kKey});
  EXPECT_EQ(got.status, kNoDeviceRoot);
}

TEST_P(PlantedFile, AsATraceToDrawIsReported) {
  const Finished drawn =
      quillon({"timeline", plant("tmp/trace").string(), (root_ / "tmp/page.html").string()});
  EXPECT_NE(drawn.status, 0);
  EXPECT_THAT(drawn.err, AnyOf(HasSubstr("not a regular file"), HasSubstr("larger than 64 MiB")));
}

TEST_P(PlantedFile, AsASigningKeyIsReported) {
  const Finished refused = quillon({"partner", "sign", "--key", plant("tmp/key").string(), "--duid",
                                    "ID1", (root_ / "tmp").string()});
  EXPECT_NE(refused.status, 0);
  EXPECT_THAT(refused.err, AnyOf(HasSubstr("not a regular file"), HasSubstr("larger than 1 MiB")));
}

// A sparse file is a regular file, to which the program may append.
TEST_P(PlantedFile, AsLogOrTraceIsNotWrittenUnlessItIsRegular) {
  if (GetParam() == kSparseFile) {
    return;
  }
  const std::string file = plant("tmp/log").string();
  const std::string get = "not a regular file; going on ";
  for (const auto& [variable, value, rest] :
       std::vector<std::array<std::string, 3>>{{"QUILLON_LOG", "file:", "with errors on"},
                                               {"QUILLON_LOG", "json:", "with errors on"},
                                               {"QUILLON_TRACE", "", "without a trace"}}) {
    const Finished ran =
        quillon({"config", "get", "--device", root_, kKey}, {{variable, value + file}});
    EXPECT_THAT(ran.err, HasSubstr(get + rest));
  }
}

INSTANTIATE_TEST_SUITE_P(OfKind, PlantedFile, ::testing::Values(kFifo, kLinkToDevice, kSparseFile),
                         [](const auto& param) { return param.param; });

class LockedTrace : public DeviceRootTest {};

// Any process that can read the file can lock it.
TEST_F(LockedTrace, DoesNotBlockACommand) {
  const std::string file = (root_ / "tmp/trace").string();
  writeFile(file, "");
  const int descriptor = open(file.c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(flock(descriptor, LOCK_EX), 0);
  const Finished ran = run(
      {"/usr/bin/timeout", "30", QUILLON_TOOL, "config", "get", "--device", root_.string(), kKey},
      {{"QUILLON_TRACE", file}});
  close(descriptor);
  EXPECT_NE(ran.status, kTimedOut);
  EXPECT_THAT(ran.err, HasSubstr("going on without a trace"));
}

}  // namespace
}  // namespace quillon::test
