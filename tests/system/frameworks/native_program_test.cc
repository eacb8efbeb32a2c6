// Manifests that name the native program of an application instead of its assembly.
#include <gmock/gmock.h>

#include "quillon/base/exit_status.h"
#include "tests/system/frameworks/application_device.h"

namespace quillon::test {
namespace {

using ::testing::HasSubstr;

constexpr char kProgram[] = "org.velora.test.program";
constexpr char kFolder[] = "/opt/usr/apps/org.velora.test.program/bin/";

class NativeProgram : public ApplicationTest {
 protected:
  // Expects the same message from a direct launch, a launch beside a launch pad, and the plan.
  void expectRefusal(const std::string& executable, const std::string& message) {
    install(kProgram, executable);
    start(1);
    for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
             {"--direct", kProgram}, {kProgram}, {"--plan", kProgram}}) {
      const CommandResult refused = launch(arguments);
      EXPECT_EQ(refused.status, kNotExecutable);
      EXPECT_THAT(refused.err, HasSubstr(message));
    }
  }
};

TEST_F(NativeProgram, IsRefusedWithTheNameOfItsAssembly) {
  package(kProgram, "Program");
  const std::string path = std::string(kFolder) + "Program";
  expectRefusal("Program", "the runtime cannot run '" + path +
                               "': it is a native program, not an assembly; name the assembly that "
                               "this program starts: '" +
                               path + ".dll'\n");
  EXPECT_EQ(launch({"--path", path + ".dll", kProgram}).out, "started\n");
}

// Stores an offset before the mark of the program, as the SDK does when it appends the assemblies.
void markAsSingleFile(const std::filesystem::path& program) {
  std::string bytes = contentOf(program);
  const size_t mark = bytes.find("\x8b\x12\x02\xb9\x6a\x61\x20\x38");
  ASSERT_NE(mark, std::string::npos);
  ASSERT_EQ(bytes.substr(mark - 8, 8), std::string(8, '\0'));
  bytes.replace(mark - 8, 8, {1, 2, 3, 0, 0, 0, 0, 0});
  write(program, bytes + "assemblies");
}

TEST_F(NativeProgram, IsRefusedWithThePublishOptionIfItIsASingleFile) {
  const std::filesystem::path bin = package(kProgram, "Program") / "bin";
  std::filesystem::remove(bin / "Program.dll");
  markAsSingleFile(bin / "Program");
  expectRefusal("Program",
                "': it is a native program, not an assembly; it is a single-file "
                "application: publish it with -p:PublishSingleFile=false");
}

}  // namespace
}  // namespace quillon::test
