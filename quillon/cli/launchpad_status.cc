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

void printProcess(const Status::Process& process) {
  std::cout << "  process " << process.pid << ": " << process.stage
            << (process.application.empty() ? "" : ", " + process.application) << '\n';
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

}  // namespace

void printStatus(const Status& status) {
  std::cout << (status.isStopping ? "stopping" : "serving") << ", process " << status.pid << '\n'
            << "served: " << status.prepared << '\n';
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
             {"pools", status.pools},
             {"processes", processes},
             {"directLaunches", direct}});
}

void printMetrics(const Status& status) {
  printLaunches(status);
  printLatency(status);
  printPools(status);
  std::cout << "# EOF\n";
}

}  // namespace quillon::cli
