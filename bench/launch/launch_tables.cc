#include "bench/launch/launch_tables.h"

#include <sys/utsname.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <string>
#include <thread>

#include "bench/quantile.h"

namespace quillon::bench {
namespace {

constexpr double kMilliseconds = 1e3;

// The ratios of each round: a disturbance of the machine affects both values.
std::vector<double> ratiosOf(const std::vector<double>& measured,
                             const std::vector<double>& reference) {
  std::vector<double> ratios;
  for (size_t i = 0; i < std::min(measured.size(), reference.size()); ++i) {
    ratios.push_back(measured[i] / reference[i]);
  }
  return ratios;
}

double ratioOf(const std::vector<double>& measured, const std::vector<double>& reference) {
  const std::vector<double> ratios = ratiosOf(measured, reference);
  return ratios.empty() ? 0 : median(ratios);
}

// Empty if the reference is not among the rows.
std::string ratioText(const std::vector<double>& measured, const std::vector<double>& reference) {
  std::array<char, 32> text{};
  if (!reference.empty()) {
    std::snprintf(text.data(), text.size(), "%.3f", ratioOf(measured, reference));
  }
  return text.data();
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

const Calls& callsOf(const std::vector<Measured>& group, const std::string& name) {
  static const Calls kNothing;
  const auto found = std::find_if(group.begin(), group.end(),
                                  [&](const Measured& one) { return one.name == name; });
  return found == group.end() ? kNothing : found->calls;
}

std::vector<double> callOf(const Calls& calls, const std::string& name) {
  const auto found =
      std::find_if(calls.begin(), calls.end(), [&](const auto& one) { return one.first == name; });
  return found == calls.end() ? std::vector<double>() : found->second;
}

// The sum of each round.
std::vector<double> sumOf(const Calls& calls) {
  std::vector<double> sums(calls.empty() ? 0 : calls.front().second.size());
  for (const auto& [name, microseconds] : calls) {
    for (size_t i = 0; i < std::min(sums.size(), microseconds.size()); ++i) {
      sums[i] += microseconds[i];
    }
  }
  return sums;
}

// A name in the output of plugin_calls.
constexpr char kLoading[] = "loading";

Calls withoutLoading(Calls calls) {
  std::erase_if(calls, [](const auto& call) { return call.first == kLoading; });
  return calls;
}

template <typename Value>
long medianOf(const std::vector<Memory>& memory, Value Memory::*field) {
  std::vector<double> values;
  for (const Memory& one : memory) {
    values.push_back(static_cast<double>(one.*field));
  }
  return static_cast<long>(median(values));
}

// Prints medians, the 10th and 90th percentile, and the medians of each round's ratios to the stock
// host, the bare host and the direct launch.
void printTimes(const std::string& title, const std::vector<Measured>& group) {
  std::printf("\n%-50s %8s %8s %8s %9s %8s %9s\n", title.c_str(), "ms", "p10", "p90", "x dotnet",
              "x bare", "x direct");
  for (const Measured& one : group) {
    if (one.seconds.empty()) {
      continue;
    }
    std::printf("%-50s %8.2f %8.2f %8.2f %9s %8s %9s\n", one.name.c_str(),
                median(one.seconds) * kMilliseconds, quantile(one.seconds, 0.1) * kMilliseconds,
                quantile(one.seconds, 0.9) * kMilliseconds,
                ratioText(one.seconds, secondsOf(group, kStockHost)).c_str(),
                ratioText(one.seconds, secondsOf(group, kBareHost)).c_str(),
                ratioText(one.seconds, secondsOf(group, kDirectLaunch)).c_str());
  }
}

// Prints the targets of the contenders and their measured ratios.
void printAims(const std::string& title, const std::vector<Measured>& group) {
  std::printf("\n%-50s %-34s %6s %6s\n", ("aims, " + title).c_str(), "beside", "aim", "ratio");
  for (const Measured& one : group) {
    if (one.seconds.empty()) {
      continue;
    }
    for (const Aim& aim : one.aims) {
      if (secondsOf(group, aim.reference).empty()) {
        continue;
      }
      const double ratio = ratioOf(one.seconds, secondsOf(group, aim.reference));
      std::printf("%-50s %-34s %6.2f %6.3f%s\n", one.name.c_str(), aim.reference.c_str(),
                  aim.maxRatio, ratio, ratio <= aim.maxRatio ? "" : " missed");
    }
  }
}

// Prints one line of a comparison with the older build. The quantiles are those of the rounds'
// ratios.
void printComparison(const std::string& name, const std::vector<double>& measured,
                     const std::vector<double>& older, double scale) {
  const std::vector<double> ratios = ratiosOf(measured, older);
  if (ratios.empty()) {
    return;
  }
  std::printf("%-50s %9.2f %9.2f %8.3f %8.3f %8.3f\n", name.c_str(), median(older) * scale,
              median(measured) * scale, median(ratios), quantile(ratios, 0.1),
              quantile(ratios, 0.9));
}

// Prints each row beside the same one of the older build.
void printAgainst(const std::string& title, const std::vector<Measured>& group) {
  if (std::all_of(group.begin(), group.end(), [](const Measured& one) {
        return one.older.empty() && one.olderCalls.empty();
      })) {
    return;
  }
  std::printf("\n%-50s %9s %9s %8s %8s %8s\n", ("against the older build, " + title).c_str(), "old",
              "new", "new/old", "p10", "p90");
  for (const Measured& one : group) {
    printComparison(one.name + ", ms", one.seconds, one.older, kMilliseconds);
    if (!one.olderCalls.empty()) {
      std::printf("%s\n", one.name.c_str());
    }
    for (const auto& [name, microseconds] : one.calls) {
      printComparison("  " + name + ", us", microseconds, callOf(one.olderCalls, name), 1);
    }
    printComparison("  the calls together, us", sumOf(withoutLoading(one.calls)),
                    sumOf(withoutLoading(one.olderCalls)), 1);
  }
}

constexpr double kCallsAim = 0.25;
constexpr double kOwnCallsAim = 0.15;

// Prints the medians of each call beside those with a silent platform.
void printCalls(const std::string& title, const Calls& calls, const Calls& own,
                const std::vector<double>& resolution) {
  const auto print = [](const char* name, const std::vector<double>& whole,
                        const std::vector<double>& part) {
    std::printf("%-52s %8.1f %8.1f\n", name, median(whole), median(part));
  };
  std::printf("\n%-52s %8s %8s\n", ("the plug-in's calls, us, " + title).c_str(), "calls", "own");
  for (const auto& [name, microseconds] : calls) {
    print(name.c_str(), microseconds, callOf(own, name));
  }
  const std::vector<double> sum = sumOf(withoutLoading(calls));
  const std::vector<double> ownSum = sumOf(withoutLoading(own));
  print("the calls together", sum, ownSum);
  print("stock host, loaded, up to the runtime's properties", resolution, resolution);
  std::printf("%-52s %8.3f %8.3f (aims: %.2f, %.2f)\n", "ratio of the calls",
              ratioOf(sum, resolution), ratioOf(ownSum, resolution), kCallsAim, kOwnCallsAim);
  std::printf("%-52s %8.3f\n", "ratio of the calls and the loading",
              ratioOf(sumOf(calls), resolution));
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

void printGroup(const std::string& title, const std::vector<Measured>& group) {
  if (group.empty()) {
    return;
  }
  printTimes(title, group);
  printAims(title, group);
  printAgainst(title, group);
  const Calls& calls = callsOf(group, kPluginCalls);
  const Calls& own = callsOf(group, kOwnCalls);
  const Calls& resolution = callsOf(group, kStockResolution);
  if (!calls.empty() && !own.empty() && !resolution.empty()) {
    printCalls(title, calls, own, resolution.front().second);
  }
  printMemory(title, group);
}

void printMemory(const std::string& title, const std::vector<Measured>& group) {
  if (std::all_of(group.begin(), group.end(),
                  [](const Measured& one) { return one.memory.empty(); })) {
    return;
  }
  std::printf("\n%-52s %9s %9s\n", ("memory, " + title).c_str(), "PSS KiB", "private");
  for (const Measured& one : group) {
    if (one.memory.empty()) {
      continue;
    }
    std::printf("%-52s %9ld %9ld\n", one.name.c_str(), medianOf(one.memory, &Memory::pssKib),
                medianOf(one.memory, &Memory::privateKib));
  }
}

}  // namespace quillon::bench
