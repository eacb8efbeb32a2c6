// Decorators: strategies that wrap another strategy, change one or two of its results and forward
// all other calls. Decorators can be nested.
//
// A decorator does not own the strategy that it wraps. That strategy must live as long as the
// decorator.
#pragma once

#include <string>
#include <vector>

#include "plugin/include-internal/plugin-strategy.h"
#include "util/log/log.h"

// The log lines of forwarded calls always name this header, whichever unit includes it.
#define QUILLON_FORWARD_LOG(message)                                                               \
  QUILLON_LOG_LINE(DLOG_DEBUG, QUILLON_COLOUR_DEBUG, "dpc-path-manager.h", __FUNCTION__, __LINE__, \
                   message)

// Forwards every operation after a debug line with its name.
class Decorator : public PluginStrategy {
 public:
  explicit Decorator(PluginStrategy* wrapped) : wrapped_(wrapped) {
    QUILLON_FORWARD_LOG("Decorator");
  }

  void Initialize() override {
    QUILLON_FORWARD_LOG("Decorator::Initialize");
    wrapped_->Initialize();
  }

  void Preload() override {
    QUILLON_FORWARD_LOG("Decorator::Preload");
    wrapped_->Preload();
  }

  void SetAppInfo(const string& appId, const string& rootPath) override {
    QUILLON_FORWARD_LOG("Decorator::SetAppInfo");
    wrapped_->SetAppInfo(appId, rootPath);
  }

  std::string GetDllPath() override {
    QUILLON_FORWARD_LOG("Decorator::GetDllPath");
    return wrapped_->GetDllPath();
  }

  std::string GetExtraDllPath() override {
    QUILLON_FORWARD_LOG("Decorator::GetExtraDllPath");
    return wrapped_->GetExtraDllPath();
  }

  std::string GetTPA() override {
    QUILLON_FORWARD_LOG("Decorator::GetTPA");
    return wrapped_->GetTPA();
  }

  void Finalize() override {
    QUILLON_FORWARD_LOG("Decorator::Finalize");
    wrapped_->Finalize();
  }

 private:
  PluginStrategy* wrapped_;
};

#undef QUILLON_FORWARD_LOG

// Adds directories of extra assemblies (DPC): those of the platform, and those of the packages that
// the application requires.
//
// The runtime receives its lists before the application is known. The list therefore begins with
// the paths of placeholder descriptors, and SetAppInfo later makes them refer to the required
// directories. The placeholders stay open until the process ends.
class DpcPathManagerDecorate : public Decorator {
 public:
  explicit DpcPathManagerDecorate(PluginStrategy* wrapped);

  // Opens ten placeholders and returns their paths, followed by the directories of the platform,
  // each with ":" before it. Does not call the wrapped strategy. A second call opens ten more
  // placeholders, but appends the paths of the first ten again; SetAppInfo redirects those first.
  //
  // Throws std::ios_base::failure if a placeholder cannot be opened.
  std::string GetExtraDllPath() override;

  // Calls the wrapped strategy, then redirects the placeholders.
  void SetAppInfo(const string& appId, const string& rootPath) override;

  // Makes the placeholders refer, in order, to the directories that the application requires. A
  // directory that cannot be opened uses no placeholder. If there are more directories than
  // placeholders, the remaining ones are ignored.
  //
  // Throws std::ios_base::failure if the next placeholder could not be opened.
  void ChangeTempFDForDpcToRealDpcPath(const string& appId);

  // Returns the ids of the required packages, separated by ";", or an empty string if the
  // application requires none.
  std::string GetDpcList(const string& appId);

  // Callback for each metadata entry: stores the value of the first key that lists required
  // packages in `*userData`, a std::string, and returns false to stop the iteration. `userData` may
  // be null.
  static bool dpc_metadata_cb(const char* key, const char* value, void* userData);

 private:
  int placeholderCount_;
  std::vector<int> placeholders_;
  std::string extraDllPath_;
};

// Inserts the application's own copies of the platform's TV API at the beginning of the list of the
// wrapped strategy, so that the runtime uses them.
class ApitestDecorate : public Decorator {
 public:
  explicit ApitestDecorate(PluginStrategy* wrapped);

  // The result ends with ":" if the application has such files and the list of the wrapped strategy
  // is empty.
  std::string GetTPA() override;
};

// Replaces every native image in the list of the wrapped strategy by its IL assembly, which is
// assumed to be in the same directory.
class AotRemoverDecorate : public Decorator {
 public:
  explicit AotRemoverDecorate(PluginStrategy* wrapped);

  std::string GetTPA() override;
};
