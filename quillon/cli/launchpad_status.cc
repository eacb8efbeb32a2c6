#include "quillon/cli/launchpad_status.h"

#include <algorithm>
#include <ctime>
#include <iomanip>
#include <iostream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>

#include "quillon/cli/json_output.h"

namespace quillon::cli {
namespace {

using launchpad::Status;

std::string timeText(uint64_t seconds, const char* format) {
  const auto time = static_cast<std::time_t>(seconds);
  std::tm parts{};
  gmtime_r(&time, &parts);
  std::ostringstream text;
  text << std::put_time(&parts, format);
  return text.str();
}

constexpr uint64_t kKibPerMib = 1024;

void printProcess(const Status::Process& process) {
  std::cout << "  process " << process.pid << ": " << process.stage;
  if (!process.application.empty()) {
    std::cout << ", " << process.application;
  } else if (process.memoryKib > 0) {
    std::cout << ", " << (process.memoryKib + kKibPerMib - 1) / kKibPerMib << " MiB";
  }
  std::cout << '\n';
}

// The processes that a shortage of memory takes away.
constexpr const char* kShortages[] = {"none", "own", "all"};

const char* shortageOf(const Status& status) {
  return kShortages[std::min<uint64_t>(status.shortage, std::size(kShortages) - 1)];
}

void printMemory(const Status& status) {
  if (status.ownMemoryKib > 0) {
    std::cout << "by own processes: " << status.known << "; those that wait may need "
              << status.ownMemoryKib / kKibPerMib << " MiB\n";
  }
  if (!status.watchesPressure) {
    std::cout << "memory pressure: this kernel does not report it\n";
  } else if (status.shortages > 0) {
    std::cout << "memory pressure: reported " << status.shortages
              << " times; processes given up now: " << shortageOf(status) << '\n';
  }
}

// A label value, in quotes.
std::string labelValue(const std::string& value) {
  std::string text = "\"";
  for (const char c : value) {
    if (c == '\n') {
      text += "\\n";
      continue;
    }
    if (c == '"' || c == '\\') {
      text += '\\';
    }
    text += c;
  }
  return text + '"';
}

void printLaunches(const Status& status) {
  std::cout << "# TYPE quillon_launches counter\n"
               "# HELP quillon_launches Launches by way, and the reasons of direct ones.\n"
               "quillon_launches_total{way=\"prepared\"} "
            << status.prepared << '\n';
  for (const auto& [text, launches] : status.reasons) {
    std::cout << "quillon_launches_total{way=\"direct\",reason=" << labelValue(text) << "} "
              << launches << '\n';
  }
}

// A bound has a decimal point in any case.
std::string boundText(size_t index) {
  if (index >= std::size(launchpad::kLatencyBounds)) {
    return "+Inf";
  }
  std::ostringstream text;
  text << launchpad::kLatencyBounds[index];
  return text.str() + (text.str().find('.') == std::string::npos ? ".0" : "");
}

void printLatency(const Status& status) {
  constexpr double kMicro = 1e-6;
  std::cout << "# TYPE quillon_launch_duration_seconds histogram\n"
               "# UNIT quillon_launch_duration_seconds seconds\n"
               "# HELP quillon_launch_duration_seconds Time from the request of a prepared launch "
               "to the application's start.\n";
  uint64_t sum = 0;
  for (size_t i = 0; i < status.latencies.size(); ++i) {
    sum += status.latencies[i];
    std::cout << "quillon_launch_duration_seconds_bucket{le=\"" << boundText(i) << "\"} " << sum
              << '\n';
  }
  std::cout << "quillon_launch_duration_seconds_count " << sum << '\n'
            << "quillon_launch_duration_seconds_sum " << std::fixed << std::setprecision(6)
            << static_cast<double>(status.latencySumUs) * kMicro << '\n';
}

void printPools(const Status& status) {
  std::map<std::pair<std::string, std::string>, int> counts;
  for (const std::string& pool : status.pools) {
    counts[{pool, "ready"}] = 0;
  }
  for (const Status::Process& process : status.processes) {
    ++counts[{process.pool, process.stage}];
  }
  std::cout << "# TYPE quillon_pool_processes gauge\n"
               "# HELP quillon_pool_processes Processes of each pool by stage.\n";
  for (const auto& [key, count] : counts) {
    std::cout << "quillon_pool_processes{pool=" << labelValue(key.first)
              << ",stage=" << labelValue(key.second) << "} " << count << '\n';
  }
}

void printPoolMemory(const Status& status) {
  constexpr uint64_t kBytesPerKib = 1024;
  std::map<std::string, uint64_t> sums;
  for (const std::string& pool : status.pools) {
    sums[pool] = 0;
  }
  for (const Status::Process& process : status.processes) {
    if (process.stage == "ready") {
      sums[process.pool] += process.memoryKib * kBytesPerKib;
    }
  }
  std::cout
      << "# TYPE quillon_pool_memory_bytes gauge\n"
         "# UNIT quillon_pool_memory_bytes bytes\n"
         "# HELP quillon_pool_memory_bytes Memory of the ready processes of each pool (PSS).\n";
  for (const auto& [pool, bytes] : sums) {
    std::cout << "quillon_pool_memory_bytes{pool=" << labelValue(pool) << "} " << bytes << '\n';
  }
}

void printOwnProcesses(const Status& status) {
  std::cout << "# TYPE quillon_own_process_launches counter\n"
               "# HELP quillon_own_process_launches Prepared launches whose process knew the "
               "application.\n"
               "quillon_own_process_launches_total "
            << status.known << '\n'
            << "# TYPE quillon_memory_pressure counter\n"
               "# HELP quillon_memory_pressure Reports that the machine is short of memory.\n"
               "quillon_memory_pressure_total "
            << status.shortages << '\n';
}

}  // namespace

void printStatus(const Status& status) {
  std::cout << (status.isStopping ? "stopping" : "serving") << ", process " << status.pid << '\n'
            << "served: " << status.prepared << '\n';
  printMemory(status);
  size_t number = 0;
  for (const std::string& pool : status.pools) {
    std::cout << "pool " << ++number << ": " << pool << '\n';
    for (const Status::Process& process : status.processes) {
      if (process.pool == pool) {
        printProcess(process);
      }
    }
  }
  const auto isLeft = [&](const Status::Process& process) {
    return std::find(status.pools.begin(), status.pools.end(), process.pool) == status.pools.end();
  };
  if (std::any_of(status.processes.begin(), status.processes.end(), isLeft)) {
    std::cout << "without a pool:\n";
    std::for_each(status.processes.begin(), status.processes.end(), [&](const auto& process) {
      if (isLeft(process)) {
        printProcess(process);
      }
    });
  }
  if (!status.recent.empty()) {
    std::cout << "last direct launches, times in UTC:\n";
  }
  for (const Status::DirectLaunch& launch : status.recent) {
    std::cout << "  " << timeText(launch.time, "%H:%M:%S") << ' ' << launch.application << ": "
              << launch.reason << '\n';
  }
}

void printStatusAsJson(const Status& status) {
  Json processes = Json::array();
  for (const Status::Process& process : status.processes) {
    processes.push_back(
        {{"pid", process.pid},
         {"stage", process.stage},
         {"pool", process.pool},
         {"memoryKiB", process.memoryKib == 0 ? Json() : Json(process.memoryKib)},
         {"application", process.application.empty() ? Json() : Json(process.application)}});
  }
  Json direct = Json::array();
  for (const Status::DirectLaunch& launch : status.recent) {
    direct.push_back({{"time", timeText(launch.time, "%Y-%m-%dT%H:%M:%SZ")},
                      {"application", launch.application},
                      {"reason", launch.reason}});
  }
  printJson({{"process", status.pid},
             {"stopping", status.isStopping},
             {"served", status.prepared},
             {"servedByOwnProcesses", status.known},
             {"ownProcessesMiB", status.ownMemoryKib / kKibPerMib},
             {"memoryPressure",
              {{"isReported", status.watchesPressure},
               {"reports", status.shortages},
               {"givenUp", shortageOf(status)}}},
             {"pools", status.pools},
             {"processes", processes},
             {"directLaunches", direct}});
}

void printMetrics(const Status& status) {
  printLaunches(status);
  printLatency(status);
  printPools(status);
  printPoolMemory(status);
  printOwnProcesses(status);
  std::cout << "# EOF\n";
}

}  // namespace quillon::cli
