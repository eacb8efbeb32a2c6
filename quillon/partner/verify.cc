#include "quillon/partner/verify.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <system_error>
#include <vector>

#include "quillon/base/files.h"
#include "quillon/base/report.h"
#include "quillon/device/device_root.h"
#include "quillon/host/plugin/plugin_library.h"
#include "quillon/partner/trial_device.h"
#include "quillon_tv_plugin.h"
#include "workstation/config_store.h"
#include "workstation/last_errors.h"

namespace quillon::partner {
namespace {

namespace fs = std::filesystem;

constexpr char kWantedKey[] = "the policy works with an RSA key of 2048 bits alone";
constexpr char kWantedFiles[] =
    "both files must be regular ones that can be read into memory: quillon partner sign";

// How the plug-in's reasons begin, and what a person can do.
struct Remedy {
  const char* reason;
  const char* text;
};
constexpr Remedy kRemedies[] = {
    {"Unable to decode public key", "extract it: openssl pkey -in PRIVATE.pem -pubout"},
    {"The signature file size",
     "the file is cut, or of a key that is no RSA key of 2048 bits: quillon partner sign"},
    {"Failed to open signature file", kWantedFiles},
    {"Failed to open original message file", kWantedFiles},
    {"Failed to malloc original message buffer", kWantedFiles},
    {"Failed to EVP_DigestVerifyInit", kWantedKey},
    {"Error Verifying Data", kWantedKey},
    {"Signature verification fail",
     "the request was changed or signed with another key: quillon partner sign"},
    {"duid comparision", "sign a request for this device: quillon partner sign"},
};

std::string remedyFor(const std::string& reason) {
  for (const Remedy& remedy : kRemedies) {
    if (reason.rfind(remedy.reason, 0) == 0) {
      return remedy.text;
    }
  }
  return "check both files and the key";
}

// The plug-in logs its reason and then which check failed.
Failure explain(const fs::path& directory) {
  const std::vector<std::string> said = workstation::lastErrorMessages();
  const std::string verdict = said.empty() ? "it logged no error" : said.back();
  const std::string reason = said.size() < 2 ? verdict : said[said.size() - 2];
  return {"the plug-in refuses '" + directory.string() + "': " + verdict + ", " + reason,
          remedyFor(reason)};
}

// Where a file is missing the plug-in says nothing.
Expected<void> requireFiles(const fs::path& directory) {
  for (const char* name : {QUILLON_PARTNER_REQUEST, QUILLON_PARTNER_SIGNATURE}) {
    const fs::path file = directory / name;
    if (::access(file.c_str(), R_OK) != 0) {
      const int error = errno;
      return fail("cannot read '" + file.string() + "': " + std::strerror(error),
                  error == ENOENT ? "make a package: quillon partner sign"
                                  : "give a folder whose files you may read");
    }
  }
  return {};
}

int answer(const host::PluginLibrary& plugin, const std::string& mount, const fs::path& directory) {
  if (!plugin.checkSignature(mount.c_str())) {
    return report(withStatus(kPartnerRefused, explain(directory)));
  }
  std::cout << "the plug-in allows access to '" << directory.string() << "'\n" << std::flush;
  return kSuccess;
}

// A descriptor leads to the package wherever the device root hides its path.
std::string mountPathOf(int directory) { return "/proc/self/fd/" + std::to_string(directory); }

// In the child. Returns the status to end with.
int ask(const VerifyOptions& options, const fs::path& plugin, const TrialDevice& trial) {
  const int directory = ::open(options.directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  if (directory < 0) {
    return report({"cannot open '" + options.directory.string() + "': " + std::strerror(errno),
                   "give a directory that you may read", kPartnerRefused});
  }
  if (auto entered = device::enter(trial.path(), {{plugin.parent_path()}, {}}); !entered) {
    return report(entered.error());
  }
  if (auto stored = workstation::setConfig(QUILLON_PARTNER_DUID_KEY, options.duid); !stored) {
    return report(stored.error());
  }
  const auto library = host::loadPlugin(plugin);
  if (!library) {
    return report(withStatus(kNoPlugin, library.error()));
  }
  return answer(*library, mountPathOf(directory), options.directory);
}

// While it lives, a signal that asks to end waits: the trial device is removed first.
class SignalDelay {
 public:
  SignalDelay() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&signals, signal);
    sigprocmask(SIG_BLOCK, &signals, &before_);
  }
  ~SignalDelay() { restore(); }
  SignalDelay(const SignalDelay&) = delete;
  SignalDelay& operator=(const SignalDelay&) = delete;

  // Early, in a child that may be interrupted.
  void restore() const { sigprocmask(SIG_SETMASK, &before_, nullptr); }

 private:
  sigset_t before_{};
};

int statusOf(pid_t child) {
  int status = 0;
  while (::waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) {
      return report(
          {std::string("cannot wait for the trial: ") + std::strerror(errno), "", kServiceFailed});
    }
  }
  constexpr int kSignalled = 128;
  return WIFSIGNALED(status) ? kSignalled + WTERMSIG(status) : WEXITSTATUS(status);
}

fs::path pluginOf(const VerifyOptions& options) {
  std::error_code ignored;
  return options.plugin.empty() ? host::defaultPlugin(executablePath())
                                : fs::absolute(options.plugin, ignored);
}

}  // namespace

int verify(const VerifyOptions& options) {
  if (auto there = requireFiles(options.directory); !there) {
    return report(withStatus(kPartnerRefused, there.error()));
  }
  const SignalDelay delay;  // outlives the trial device
  const auto trial = TrialDevice::make(options.key);
  if (!trial) {
    return report(trial.error());
  }
  const pid_t child = ::fork();
  if (child < 0) {
    return report(
        {std::string("cannot start a process: ") + std::strerror(errno), "", kServiceFailed});
  }
  if (child == 0) {
    delay.restore();
    ::_exit(ask(options, pluginOf(options), *trial));
  }
  return statusOf(child);
}

}  // namespace quillon::partner
