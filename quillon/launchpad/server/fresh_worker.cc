#include "quillon/launchpad/server/fresh_worker.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "quillon/base/record.h"
#include "quillon/base/report.h"
#include "quillon/base/terminal.h"
#include "quillon/launchpad/protocol/sealed_memory.h"
#include "quillon/launchpad/worker/process_setup.h"

namespace quillon::launchpad {
namespace {

struct Configuration {
  WorkerConfig config;
  PoolKey key;
  pid_t server = 0;
};

void encode(RecordWriter& record, const EnvironmentChanges& changes) {
  record.number(changes.size());
  for (const auto& [name, value] : changes) {
    record.text(name).number(value ? 1 : 0).text(value.value_or(""));
  }
}

EnvironmentChanges decodeChanges(RecordReader& record) {
  EnvironmentChanges changes;
  for (uint64_t left = record.number(); left > 0 && record.ok(); --left) {
    std::string name = record.text();
    const bool hasValue = record.number() == 1;
    std::string value = record.text();
    changes[std::move(name)] = hasValue ? std::optional(std::move(value)) : std::nullopt;
  }
  return changes;
}

std::string encode(const WorkerConfig& config, const PoolKey& key, pid_t server) {
  RecordWriter record;
  record.text(config.executable.string()).text(config.plugin.string());
  record.text({reinterpret_cast<const char*>(&config.blocked), sizeof config.blocked});
  encode(record, changesSince(config.environment));
  record.number(static_cast<uint64_t>(server)).text(key.type).number(key.raw ? 1 : 0);
  record.number(key.settings.size());
  for (const auto& [name, value] : key.settings) {
    record.text(name).text(value);
  }
  record.text(resolution::format(key.additions)).number(key.application ? 1 : 0);
  if (key.application) {
    const KnownApplication& known = *key.application;
    record.text(known.id).text(known.packageRoot).text(known.assembly).text(known.fingerprint);
  }
  return record.take();
}

std::optional<Configuration> decode(std::string_view bytes) {
  RecordReader record(bytes);
  Configuration all{{record.text(), record.text(), {}, {}, {}}, {}, 0};
  const std::string blocked = record.text();
  blocked.copy(reinterpret_cast<char*>(&all.config.blocked), sizeof all.config.blocked);
  all.config.changes = decodeChanges(record);
  all.server = static_cast<pid_t>(record.number());
  all.key.type = record.text();
  all.key.raw = record.number() == 1;
  for (uint64_t left = record.number(); left > 0 && record.ok(); --left) {
    std::string name = record.text();
    all.key.settings.emplace_back(std::move(name), record.text());
  }
  auto additions = resolution::parseAdditions(record.text());
  all.key.additions = std::move(additions).value_or(resolution::Additions());
  if (record.number() == 1) {
    KnownApplication& known = all.key.application.emplace();
    for (std::string* const field :
         {&known.id, &known.packageRoot, &known.assembly, &known.fingerprint}) {
      *field = record.text();
    }
  }
  return record.atEnd() ? std::optional(std::move(all)) : std::nullopt;
}

// Lets the next program of this process inherit a descriptor. Returns its number.
std::string inherit(const Descriptor& descriptor) {
  fcntl(descriptor.get(), F_SETFD, 0);
  return std::to_string(descriptor.get());
}

}  // namespace

void execWorker(const WorkerConfig& config, const PoolKey& key, pid_t server, Descriptor channel) {
  const Descriptor file = makeSealedMemory(encode(config, key, server));
  keepCapabilitiesAcrossExec();
  if (file) {
    execl(config.executable.c_str(), "quillon", "launchpad", "worker", inherit(channel).c_str(),
          inherit(file).c_str(), nullptr);
  }
  tell({"cannot start '" + config.executable.string() + "': " + std::strerror(errno), {}});
  _exit(kServiceFailed);
}

int runFreshWorker(int channel, int configuration) {
  keepTerminal();
  Descriptor file(configuration);
  Descriptor socket(channel);
  auto all = decode(readSealedMemory(file.get()).view());
  file.reset();
  if (!all || fcntl(socket.get(), F_SETFD, FD_CLOEXEC) != 0) {
    return report({"'launchpad worker' is an internal command of the launch pad", {}, kUsage});
  }
  all->config.environment = currentEntries();
  runWorker(all->config, all->key, all->server, std::move(socket));
}

}  // namespace quillon::launchpad
