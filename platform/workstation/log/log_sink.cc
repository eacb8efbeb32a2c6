#include "log/log_sink.h"

#include <dlfcn.h>
#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <cstdlib>

#include "log/log_target.h"
#include "platform/dlog.h"
#include "quillon/base/descriptor.h"
#include "quillon/base/files.h"

namespace quillon::workstation {
namespace {

constexpr const char* kJournalSocket = "/run/systemd/journal/socket";

// Writes to the standard error at the time of load. The plug-in's capture replaces descriptor 2
// later, so a line written there would be logged again.
class TerminalSink : public LogSink {
 public:
  explicit TerminalSink(Descriptor fd) : fd_(std::move(fd)) {
    colours_ = isatty(fd_.get()) != 0 && std::getenv("NO_COLOR") == nullptr;
  }
  void write(const LogRecord& record) override {
    const std::string lines = terminalLines(record);
    writeAll(fd_.get(), colours_ ? lines : withoutColours(lines));
  }
  [[nodiscard]] int descriptor() const override { return fd_.get(); }

 private:
  Descriptor fd_;
  bool colours_;
};

class FileSink : public LogSink {
 public:
  using Format = std::string (*)(const LogRecord&);
  FileSink(Descriptor fd, Format format) : fd_(std::move(fd)), format_(format) {}
  void write(const LogRecord& record) override { writeAll(fd_.get(), format_(record)); }
  [[nodiscard]] int descriptor() const override { return fd_.get(); }

 private:
  Descriptor fd_;
  Format format_;
};

// Maps the platform's priority to the journal's, see syslog(3).
int journalPriority(int priority) {
  if (priority <= DLOG_DEBUG) {
    return 7;
  }
  if (priority == DLOG_INFO) {
    return 6;
  }
  if (priority < DLOG_ERROR) {
    return 4;
  }
  return priority == DLOG_ERROR ? 3 : 2;
}

// sd_journal_sendv(3). Its library is loaded only if the journal is the target, because loading it
// and its dependencies would cost every launch more than logging does.
using SendToJournal = int(const iovec*, int);
constexpr const char* kJournalLibrary = "libsystemd.so.0";

SendToJournal* loadJournal() {
  void* const library = dlopen(kJournalLibrary, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    return nullptr;
  }
  return reinterpret_cast<SendToJournal*>(dlsym(library, "sd_journal_sendv"));
}

class JournalSink : public LogSink {
 public:
  explicit JournalSink(SendToJournal* send) : send_(send) {}
  void write(const LogRecord& record) override {
    // The journal shows messages with escape sequences as binary data.
    std::array<std::string, 5> fields = {
        "MESSAGE=" + withoutColours(withoutLineBreak(record.text)),
        "PRIORITY=" + std::to_string(journalPriority(record.priority)),
        "SYSLOG_IDENTIFIER=" + std::string(record.tag),
        "TID=" + std::to_string(record.tid),
        "QUILLON_LOG_ID=" + std::to_string(record.id),
    };
    std::array<iovec, fields.size()> parts{};
    for (size_t i = 0; i < fields.size(); ++i) {
      parts[i] = {fields[i].data(), fields[i].size()};
    }
    send_(parts.data(), static_cast<int>(parts.size()));
  }

 private:
  SendToJournal* send_;
};

std::unique_ptr<LogSink> openJournal(std::string& problem) {
  if (access(kJournalSocket, W_OK) != 0) {
    problem = std::string("QUILLON_LOG=journal: no journal listens at ") + kJournalSocket +
              "; going on with errors on the terminal";
    return nullptr;
  }
  if (SendToJournal* const send = loadJournal()) {
    return std::make_unique<JournalSink>(send);
  }
  problem = std::string("QUILLON_LOG=journal: cannot load ") + kJournalLibrary +
            "; install it; going on with errors on the terminal";
  return nullptr;
}

}  // namespace

std::unique_ptr<LogSink> openLogSink(const LogSettings& settings, std::string& problem) {
  if (settings.target == LogTarget::kJournal) {
    return openJournal(problem);
  }
  if (!needsDescriptor(settings.target)) {
    return nullptr;
  }
  Descriptor fd = openTarget(settings, problem);
  return fd ? logSinkOn(settings.target, fd.release()) : nullptr;
}

std::unique_ptr<LogSink> logSinkOn(LogTarget target, int descriptor) {
  Descriptor fd(descriptor);
  switch (target) {
    case LogTarget::kTerminal:
      return std::make_unique<TerminalSink>(std::move(fd));
    case LogTarget::kFile:
      return std::make_unique<FileSink>(std::move(fd), fullLine);
    case LogTarget::kJson:
      return std::make_unique<FileSink>(std::move(fd), jsonLine);
    case LogTarget::kJournal:
    case LogTarget::kNone:
      break;
  }
  return nullptr;
}

}  // namespace quillon::workstation
