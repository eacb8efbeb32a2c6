#include "tests/system/frameworks/application_device.h"

#include <gmock/gmock.h>

#include <cstdlib>

namespace quillon::test {
namespace {

namespace fs = std::filesystem;

const std::string kQuillon = std::string(QUILLON_BUILD_DIRECTORY) + "/bin/quillon";

std::vector<std::string> operator+(std::vector<std::string> one,
                                   const std::vector<std::string>& more) {
  one.insert(one.end(), more.begin(), more.end());
  return one;
}

}  // namespace

fs::path ApplicationTest::package(const std::string& id, const std::string& application) const {
  const fs::path folder = fresh(id);
  fs::create_directories(folder);
  fs::copy(fs::path(QUILLON_APPLICATIONS) / application, folder / "bin",
           fs::copy_options::recursive);
  return folder;
}

CommandResult ApplicationTest::install(const std::string& id, const std::string& executable) const {
  write(fresh(id + ".toml"), "[package]\nid = \"" + id + "\"\nversion = \"1.0\"\nfiles = \"" + id +
                                 "\"\nprivileges = [\"/privilege/internal/default/platform\"]\n"
                                 "[[application]]\nid = \"" +
                                 id + "\"\nexec = \"bin/" + executable + "\"\n");
  CommandResult installed =
      run({kQuillon, "package", "install", "--device", root(), fresh(id + ".toml")});
  EXPECT_EQ(installed.status, 0) << installed.err;
  return installed;
}

CommandResult ApplicationTest::dotnet(const std::string& id, const std::string& executable,
                                      const std::vector<std::string>& arguments) const {
  return run(std::vector<std::string>{QUILLON_DOTNET, fresh(id) / "bin" / executable} + arguments);
}

CommandResult ApplicationTest::direct(const std::string& id,
                                      const std::vector<std::string>& arguments,
                                      const std::string& type) const {
  return launch(std::vector<std::string>{"--direct", "--type", type, id, "--"} + arguments);
}

CommandResult ApplicationTest::prepared(const std::string& id,
                                        const std::vector<std::string>& arguments,
                                        const std::string& type) {
  if (launchpad() < 0) {
    start(1);
  }
  const auto command = std::vector<std::string>{"--type", type, id, "--"} + arguments;
  const int before = served();
  launch(command);  // makes its pool, unless there is one
  EXPECT_TRUE(eventually([&] {
    return status().find("in preparation") == std::string::npos && !processes("ready").empty();
  })) << status()
      << errors();
  const int served = this->served();
  CommandResult result = launch(command);
  EXPECT_EQ(this->served(), served + 1) << "launched directly; " << status() << errors() << before;
  return result;
}

void ApplicationTest::replaceIn(const fs::path& file, const std::string& text,
                                const std::string& by) {
  std::string content = contentOf(file);
  size_t at = content.find(text);
  ASSERT_NE(at, std::string::npos) << file << ": " << content;
  for (; at != std::string::npos; at = content.find(text, at + by.size())) {
    content.replace(at, text.size(), by);
  }
  write(file, content);
}

fs::path ApplicationTest::answerOf(const std::string& id, const std::string& executable) const {
  return at("/opt/usr/share/quillon/resolutions/opt/usr/apps/" + id + "/bin/" + executable);
}

}  // namespace quillon::test
