#include "quillon/partner/verify.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <vector>

#include "quillon/base/descriptor.h"
#include "quillon/base/process.h"
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

constexpr char kWantedKey[] = "the policy works with 2048-bit RSA keys only";
constexpr char kWantedFiles[] =
    "both files must be regular files that fit into memory: quillon partner sign";

// The beginning of a reason that the plug-in logs, and what the user can do.
struct Remedy {
  const char* reason;
  const char* text;
};
constexpr Remedy kRemedies[] = {
    {"Unable to decode public key", "extract it: openssl pkey -in PRIVATE.pem -pubout"},
    {"The signature file size",
     "the file is truncated, or its key is not a 2048-bit RSA key: quillon partner sign"},
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
    if (reason.starts_with(remedy.reason)) {
      return remedy.text;
    }
  }
  return "check both files and the key";
}

// The plug-in logs the reason, then which check failed.
Failure explain(const fs::path& directory) {
  const std::vector<std::string> logged = workstation::lastErrorMessages();
  const std::string verdict = logged.empty() ? "it logged no error" : logged.back();
  const std::string reason = logged.size() < 2 ? verdict : logged[logged.size() - 2];
  return {"the plug-in refuses '" + directory.string() + "': " + verdict + ", " + reason,
          remedyFor(reason)};
}

// Checks for missing files, since the plug-in logs nothing about them.
Expected<void> requireFiles(const fs::path& directory) {
  for (const char* name : {QUILLON_PARTNER_REQUEST, QUILLON_PARTNER_SIGNATURE}) {
    const fs::path file = directory / name;
    if (access(file.c_str(), R_OK) != 0) {
      const int error = errno;
      return fail("cannot read '" + file.string() + "': " + std::strerror(error),
                  error == ENOENT ? "create a package: quillon partner sign"
                                  : "give a folder whose files you may read");
    }
  }
  return {};
}

// Runs in the child.
Expected<void> check(const VerifyOptions& options, const fs::path& plugin,
                     const TrialDevice& trial) {
  // The package is accessed through a descriptor, since the device root may hide its path.
  const Descriptor package(open(options.directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!package) {
    return fail(kPartnerRefused,
                {"cannot open '" + options.directory.string() + "': " + std::strerror(errno),
                 "give a directory that you may read"});
  }
  RETURN_IF_FAILED(device::enter(trial.path(), {{plugin.parent_path()}, {}}));
  RETURN_IF_FAILED(workstation::setConfig(QUILLON_PARTNER_DUID_KEY, options.duid));
  ASSIGN_OR_RETURN(const host::PluginLibrary library,
                   withStatus(kNoPlugin, host::loadPlugin(plugin)));
  const std::string mountPath = "/proc/self/fd/" + std::to_string(package.get());
  if (!library.checkSignature(mountPath.c_str())) {
    return fail(kPartnerRefused, explain(options.directory));
  }
  return {};
}

// Runs in the child. Returns its exit status.
int checkAndReport(const VerifyOptions& options, const TrialDevice& trial) {
  if (const auto checked = check(options, host::pluginOrDefault(options.plugin), trial); !checked) {
    return report(checked.error());
  }
  std::cout << "the plug-in allows access to '" << options.directory.string() << "'\n"
            << std::flush;
  return kSuccess;
}

// Blocks the signals that end the process, so that the trial device is removed first.
class SignalDelay {
 public:
  SignalDelay() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
      sigaddset(&signals, signal);
    }
    sigprocmask(SIG_BLOCK, &signals, &before_);
  }
  ~SignalDelay() { restore(); }
  SignalDelay(const SignalDelay&) = delete;
  SignalDelay& operator=(const SignalDelay&) = delete;

  // Unblocks the signals in a child process.
  void restore() const { sigprocmask(SIG_SETMASK, &before_, nullptr); }

 private:
  sigset_t before_{};
};

int statusOf(pid_t child) {
  const int status = waitForEnd(child);
  if (status < 0) {
    return report({std::string("cannot wait for the child process: ") + std::strerror(errno), "",
                   kServiceFailed});
  }
  constexpr int kSignalled = 128;
  return WIFSIGNALED(status) ? kSignalled + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace

int verify(const VerifyOptions& options) {
  if (const auto readable = requireFiles(options.directory); !readable) {
    return report(withStatus(kPartnerRefused, readable.error()));
  }
  const SignalDelay delay;  // must outlive the trial device
  const auto trial = TrialDevice::make(options.key);
  if (!trial) {
    return report(trial.error());
  }
  const pid_t child = fork();
  if (child < 0) {
    return report(
        {std::string("cannot start a process: ") + std::strerror(errno), "", kServiceFailed});
  }
  if (child == 0) {
    delay.restore();
    _exit(checkAndReport(options, *trial));
  }
  return statusOf(child);
}

}  // namespace quillon::partner
