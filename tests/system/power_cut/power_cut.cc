#include "tests/system/power_cut/power_cut.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <string_view>

#include "device_paths.h"
#include "tests/support/device_main.h"
#include "tests/support/figure.h"
#include "tests/support/next_call.h"
#include "tests/support/skip.h"
#include "tests/system/torture/device_files.h"

namespace quillon::power_cut {

namespace fs = std::filesystem;

std::size_t statesOfEachTest = 40;

namespace {

constexpr unsigned kSeed = 1;
constexpr char kShared[] = "/opt/usr/share/quillon";

std::size_t statesOfSuite = 0;
std::size_t faultsOfSuite = 0;

// What the writers write to.
std::vector<fs::path> tops() {
  return {"/opt/usr/share", "/opt/usr/apps", "/opt/share", device_paths::kCacheDirectory};
}

// "CachedLists" as "cached lists".
std::string inWords(const std::string& name) {
  std::string words;
  for (const char letter : name) {
    const bool isCapital = std::isupper(static_cast<unsigned char>(letter)) != 0;
    words += isCapital && !words.empty() ? " " : "";
    words += static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
  }
  return words;
}

}  // namespace

void PowerCut::SetUp() {
  if (!test::whyOutside().empty()) {
    QUILLON_SKIP("no device root: " << test::whyOutside());
  }
  static const bool prepared = [] {
    setenv("QUILLON_LOG", "none", 1);
    torture::makeAssemblies();
    torture::loadPlugin();
    return true;
  }();
  ASSERT_TRUE(prepared);
  fs::remove_all(kShared);
  for (const char* folder : {"/opt/usr/apps", "/opt/share", device_paths::kCacheDirectory}) {
    for (const auto& entry : fs::directory_iterator(folder)) {
      fs::remove_all(entry);
    }
  }
  torture::writeFile(device_paths::kWritableFlags, "1\n");
  torture::waitForDisk(false);
}

void PowerCut::TearDownTestSuite() {
  const auto* suite = ::testing::UnitTest::GetInstance()->current_test_suite();
  test::printFigure(
      "power cut, states of the " + inWords(suite->name()),
      std::to_string(statesOfSuite) + " states, " + std::to_string(faultsOfSuite) + " wrong",
      "0 wrong", suite->Passed());
  statesOfSuite = 0;
  faultsOfSuite = 0;
}

void PowerCut::cutDuring(const std::function<void()>& work,
                         const std::function<void(std::size_t marks)>& check) {
  torture::waitForDisk(true);
  const Recording recording = record(tops(), work);
  torture::waitForDisk(false);
  ASSERT_EQ(recording.failure, "");
  statesOfSuite += forEachCut(recording, statesOfEachTest, kSeed, [&](const CutState& state) {
    state.disk.write();
    check(state.marks);
    if (HasFailure()) {
      ++faultsOfSuite;
      ADD_FAILURE() << "the power was cut after\n" << state.history;
    }
    return !HasFailure();
  });
}

torture::Launched launchLists() {
  return torture::launch({}, [] {
    const char* assemblies = torture::assemblyList();
    const char* folders = torture::libraryFolders();
    return std::string(assemblies == nullptr ? "" : assemblies) + "\n" +
           (folders == nullptr ? "" : folders);
  });
}

std::string expectedAssemblies() {
  static const std::string list = torture::expectedList();
  return list;
}

}  // namespace quillon::power_cut

// The registry names files by their inode numbers, which stay the same when the power is cut.
extern "C" int fstatat(int folder, const char* path, struct stat* status, int flags) noexcept {
  static const auto next = quillon::test::next<decltype(&fstatat)>("fstatat");
  const int result = next(folder, path, status, flags);
  if (result == 0) {
    status->st_ino = quillon::power_cut::recordedInode(status->st_ino);
  }
  return result;
}

int main(int argc, char** argv) {
  namespace fs = std::filesystem;
  constexpr std::string_view kOption = "--states=";
  for (int index = 1; index < argc; ++index) {
    const std::string_view argument = argv[index];
    if (argument.starts_with(kOption)) {
      std::from_chars(argument.data() + kOption.size(), argument.data() + argument.size(),
                      quillon::power_cut::statesOfEachTest);
    }
  }
  // In memory if possible: the tests write thousands of files.
  const char* parent = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/var/tmp";
  return quillon::test::runTestsInDevice(
      argc, argv,
      {.parent = parent,
       .files = {{"etc/dotnet_flag.ini", "1\n"}, {"opt/etc/dotnet_flag.ini", "1\n"}},
       .visible = {fs::path(QUILLON_PLUGIN_PATH).parent_path().parent_path()}});
}
