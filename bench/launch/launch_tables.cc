#include "bench/launch/launch_tables.h"

#include <sys/utsname.h>

#include <algorithm>
#include <cstdio>
#include <thread>

#include "bench/quantile.h"

namespace quillon::bench {
namespace {

constexpr double kMilliseconds = 1e3;

// The median of the ratios of each round: a disturbance of the machine affects both values.
double ratioOf(const std::vector<double>& measured, const std::vector<double>& reference) {
  std::vector<double> ratios;
  for (size_t i = 0; i < std::min(measured.size(), reference.size()); ++i) {
    ratios.push_back(measured[i] / reference[i]);
  }
  return ratios.empty() ? 0 : median(ratios);
}

const std::vector<double>& secondsOf(const std::vector<Measured>& group, const std::string& name) {
  static const std::vector<double> kNothing;
  for (const Measured& one : group) {
    if (one.name == name) {
      return one.seconds;
    }
  }
  return kNothing;
}

template <typename Value>
long medianOf(const std::vector<Memory>& memory, Value Memory::*field) {
  std::vector<double> values;
  for (const Memory& one : memory) {
    values.push_back(static_cast<double>(one.*field));
  }
  return static_cast<long>(median(values));
}

}  // namespace

void printMachine(const Setup& setup, int rounds) {
  utsname system{};
  uname(&system);
  std::printf("machine: %u cores, %s %s; .NET %s; %d rounds in random order\n",
              std::thread::hardware_concurrency(), system.sysname, system.release,
              setup.runtimeVersion.c_str(), rounds);
#ifndef NDEBUG
  std::printf("assertions are on: measure a release build\n");
#endif
}

void printTimes(const std::string& title, const std::vector<Measured>& group) {
  std::printf("\n%-50s %8s %8s %8s %9s %8s %9s\n", title.c_str(), "ms", "p10", "p90", "x dotnet",
              "x bare", "x direct");
  for (const Measured& one : group) {
    if (one.seconds.empty()) {
      continue;
    }
    std::printf("%-50s %8.2f %8.2f %8.2f %9.3f %8.3f %9.3f\n", one.name.c_str(),
                median(one.seconds) * kMilliseconds, quantile(one.seconds, 0.1) * kMilliseconds,
                quantile(one.seconds, 0.9) * kMilliseconds,
                ratioOf(one.seconds, secondsOf(group, kStockHost)),
                ratioOf(one.seconds, secondsOf(group, kBareHost)),
                ratioOf(one.seconds, secondsOf(group, kDirectLaunch)));
  }
}

void printAims(const std::string& title, const std::vector<Measured>& group) {
  std::printf("\n%-50s %-34s %6s %6s\n", ("aims, " + title).c_str(), "beside", "aim", "ratio");
  for (const Measured& one : group) {
    if (one.seconds.empty()) {
      continue;
    }
    for (const Aim& aim : one.aims) {
      const double ratio = ratioOf(one.seconds, secondsOf(group, aim.reference));
      std::printf("%-50s %-34s %6.2f %6.3f%s\n", one.name.c_str(), aim.reference.c_str(),
                  aim.maxRatio, ratio, ratio <= aim.maxRatio ? "" : " missed");
    }
  }
}

void printMemory(const std::string& title, const std::vector<Measured>& group) {
  std::printf("\n%-52s %9s %9s\n", ("memory, " + title).c_str(), "PSS KiB", "private");
  for (const Measured& one : group) {
    if (one.memory.empty()) {
      continue;
    }
    std::printf("%-52s %9ld %9ld\n", one.name.c_str(), medianOf(one.memory, &Memory::pssKib),
                medianOf(one.memory, &Memory::privateKib));
  }
}

// A name in the output of plugin_calls.
constexpr char kLoading[] = "loading";
constexpr double kCallsAim = 0.2;

void printCalls(const std::string& title,
                const std::vector<std::pair<std::string, std::vector<double>>>& calls,
                const std::vector<double>& resolution) {
  std::printf("\n%-52s %8s\n", ("the plug-in's calls, " + title).c_str(), "us");
  std::vector<double> all(resolution.size());
  std::vector<double> withLoading(resolution.size());
  for (const auto& [name, microseconds] : calls) {
    std::printf("%-52s %8.1f\n", name.c_str(), median(microseconds));
    for (size_t i = 0; i < std::min(all.size(), microseconds.size()); ++i) {
      if (name != kLoading) {
        all[i] += microseconds[i];
      }
      withLoading[i] += microseconds[i];
    }
  }
  std::printf("%-52s %8.1f\n", "the calls together", median(all));
  std::printf("%-52s %8.1f\n", "stock host, loaded, up to the runtime's properties",
              median(resolution));
  std::printf("%-52s %8.3f (aim: %.2f)\n", "ratio of the calls", ratioOf(all, resolution),
              kCallsAim);
  std::printf("%-52s %8.3f\n", "ratio of the calls and the loading",
              ratioOf(withLoading, resolution));
}

}  // namespace quillon::bench
