#include "bench/ratio_table.h"

#include <sys/utsname.h>

#include <cstdio>
#include <string>
#include <thread>

namespace quillon::bench {
namespace {

constexpr double kMicroseconds = 1e6;

// The benchmark's name without the library's suffix about the clock.
std::string nameOf(const benchmark::BenchmarkReporter::Run& run) {
  const std::string& arguments = run.run_name.args;
  return run.run_name.function_name + (arguments.empty() ? "" : "/" + arguments);
}

double counter(const benchmark::BenchmarkReporter::Run& run, const char* name) {
  return run.counters.at(name).value;
}

void printRun(const benchmark::BenchmarkReporter::Run& run) {
  if (run.error_occurred) {
    std::printf("%-84s skipped: %s\n", nameOf(run).c_str(), run.error_message.c_str());
    return;
  }
  std::printf("%-84s %9.1f %9.1f %6.2f %6.2f..%.2f %7lld\n", nameOf(run).c_str(),
              counter(run, "measured_s") * kMicroseconds,
              counter(run, "reference_s") * kMicroseconds, counter(run, "ratio"),
              counter(run, "p10"), counter(run, "p90"), static_cast<long long>(run.iterations));
}

}  // namespace

bool RatioTable::ReportContext(const Context& /*context*/) {
  utsname system{};
  uname(&system);
  std::printf("machine: %u cores, %s %s\n", std::thread::hardware_concurrency(), system.sysname,
              system.release);
#ifndef NDEBUG
  std::printf("assertions are on: measure a release build\n");
#endif
  std::printf("%-84s %9s %9s %6s %12s %7s\n", "measured / beside what", "us", "us", "ratio",
              "p10..p90", "rounds");
  return true;
}

void RatioTable::ReportRuns(const std::vector<Run>& runs) {
  for (const Run& run : runs) {
    printRun(run);
  }
  std::fflush(stdout);
}

}  // namespace quillon::bench
