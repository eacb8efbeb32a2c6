// Test programs that run inside their own device root.
//
//   int main(int argc, char** argv) {
//     return quillon::test::runTestsInDevice(argc, argv, {.files = {{"etc/flag", "1\n"}}});
//   }
//
// A process that has entered a device root cannot leave it. So the program makes the device root,
// enters it in a child process, runs all tests there, and removes it.
#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace quillon::test {

struct TestDevice {
  // The folder that the device root is made in.
  std::filesystem::path parent = std::filesystem::temp_directory_path();
  // Files to write before the device is entered: path in the device, content.
  std::map<std::string, std::string> files = {};
  // Folders of the machine that are visible inside.
  std::vector<std::filesystem::path> visible = {};
};

// The result of main. With --gtest_list_tests, lists the tests without a device.
int runTestsInDevice(int argc, char** argv, const TestDevice& device);

// Why this machine does not allow the process to enter the device root; empty if it is inside.
// Tests skip in that case. After any other failure no test runs.
const std::string& whyOutside();

// Runs `body` in a child process and returns its exit status, or 128 + signal.
int inChild(const std::function<int()>& body);

}  // namespace quillon::test
