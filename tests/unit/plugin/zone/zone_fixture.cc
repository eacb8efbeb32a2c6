#include "tests/unit/plugin/zone/zone_fixture.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>

#include "tests/support/open_descriptors.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;

constexpr int kReturned = 77;
constexpr char kCalls[] = "tmp/zone-calls";

std::ptrdiff_t descriptorsBefore = 0;

bool isMapped(const std::string& name) {
  std::ifstream maps("/proc/self/maps");
  const std::string text{std::istreambuf_iterator<char>(maps), {}};
  return text.find(name) != std::string::npos;
}

// Runs at exit, whichever code ends the process.
void tell() {
  for (const std::string& line : platform().lines()) {
    std::cout << "line " << line << '\n';
  }
  std::string origin;
  for (const LogRecord& record : platform().log) {
    if (!record.message().empty()) {
      origin = record.file() + " " + record.function() + " " + record.colour();
    }
  }
  std::cout << "origin " << origin << '\n'
            << "mapped " << isMapped("libzone.so.5") << '\n'
            << "left " << openDescriptors() - descriptorsBefore << std::endl;
}

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

ZoneRun parse(const Outcome& outcome) {
  ZoneRun run{outcome.status == kReturned, outcome.status, {}, {}, {}, true, -1};
  for (const std::string& line : linesOf(outcome.output)) {
    std::istringstream words(line);
    std::string word;
    words >> word;
    if (word == "line") {
      run.lines.push_back(line.substr(5));
    }
    if (word == "origin") {
      run.lastOrigin = line.substr(7);
    }
    if (word == "mapped") {
      words >> run.libraryMapped;
    }
    if (word == "left") {
      words >> run.descriptorsLeft;
    }
  }
  return run;
}

void becomePackage(const std::vector<std::string>& privileges) {
  platform().reset();
  platform().processes[getpid()] = "org.example";
  platform().packages = {{"org.example", "/opt/usr/apps/org.example", privileges, {}}};
}

}  // namespace

void ZoneTest::placeLibrary(const std::string& without) {
  fs::create_directories(root_ / "usr/lib");
  fs::copy_file(fs::path(FAKE_ZONE_LIBRARIES) / ("fake-zone-without-" + without + ".so"),
                root_ / "usr/lib/libzone.so.5");
}

void ZoneTest::showZone() { fs::create_directories(root_ / "zone/appzone"); }

ZoneRun ZoneTest::run(const std::function<void()>& body, const std::string& behaviour,
                      const std::vector<std::string>& privileges) {
  const Outcome outcome = inChild([&] {
    if (auto entered = device::enter(root_, {}); !entered) {
      std::cout << entered.error().what;
      return 1;
    }
    ::setenv("FAKE_ZONE", behaviour.c_str(), 1);
    becomePackage(privileges);
    descriptorsBefore = openDescriptors();
    std::atexit(tell);
    body();
    tell();
    return kReturned;
  });
  ZoneRun result = parse(outcome);
  result.calls = linesOf(read(root_ / kCalls));
  return result;
}

}  // namespace quillon::test
