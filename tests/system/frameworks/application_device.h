// A device root with the applications of this folder, and launches of them in every way.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "tests/system/launchpad/running_launchpad.h"

namespace quillon::test {

class ApplicationTest : public LaunchpadTest {
 protected:
  // Copies the build output of an application to a new package folder, and returns the folder.
  std::filesystem::path package(const std::string& id, const std::string& application) const;

  // Installs the package with that id. Its executable is "bin/EXECUTABLE".
  CommandResult install(const std::string& id, const std::string& executable) const;

  // What `dotnet ASSEMBLY ARGUMENTS...` prints for the package's files. Uses the machine's .NET.
  CommandResult dotnet(const std::string& id, const std::string& executable,
                       const std::vector<std::string>& arguments = {}) const;

  // Launches directly.
  CommandResult direct(const std::string& id, const std::vector<std::string>& arguments = {},
                       const std::string& type = "inhouse") const;

  // Launches in a process of the launch pad, which it starts if none runs. Fails the test if the
  // launch is direct.
  CommandResult prepared(const std::string& id, const std::vector<std::string>& arguments = {},
                         const std::string& type = "inhouse");

  // Replaces a text in a file, which must contain it.
  static void replaceIn(const std::filesystem::path& file, const std::string& text,
                        const std::string& by);

  // The stored answer about an executable of a package.
  std::filesystem::path answerOf(const std::string& id, const std::string& executable) const;
};

// The application types of the four strategies.
inline const std::vector<std::string> kAllTypes = {"inhouse", "dotnet", "normal", "inhouseapitest"};

}  // namespace quillon::test
