// Decorators: strategies that wrap another one, change one or two of its answers and pass
// everything else through. They stack.
//
// A decorator does not own what it wraps; the wrapped strategy must live as long as the decorator.
#pragma once

#include <string>
#include <vector>

#include "plugin/include-internal/plugin-strategy.h"
#include "util/log/log.h"

// The forwarding lines name this header, whichever unit includes it.
#define QUILLON_FORWARD_LOG(message)                                                               \
  QUILLON_LOG_LINE(DLOG_DEBUG, QUILLON_COLOUR_DEBUG, "dpc-path-manager.h", __FUNCTION__, __LINE__, \
                   message)

// Forwards every operation, after one debug line that names it.
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
// The runtime takes its lists before the application is known. So the list begins with the paths of
// placeholder descriptors, which SetAppInfo later moves onto the required directories. The
// placeholders stay open until the process ends.
class DpcPathManagerDecorate : public Decorator {
 public:
  explicit DpcPathManagerDecorate(PluginStrategy* wrapped);

  // Opens ten placeholders and returns their paths, then the platform's directories, each with ":"
  // before it. Does not ask the wrapped strategy. Another call opens ten more, but appends the
  // paths of the first ten again, which SetAppInfo moves first.
  //
  // Throws std::ios_base::failure when a placeholder cannot be opened.
  std::string GetExtraDllPath() override;

  // Tells the wrapped strategy, then moves the placeholders.
  void SetAppInfo(const string& appId, const string& rootPath) override;

  // Moves the placeholders, in order, onto the directories that the application requires. One that
  // cannot be opened takes no placeholder; those past the last placeholder are left out.
  //
  // Throws std::ios_base::failure when it comes to a placeholder that failed to open.
  void ChangeTempFDForDpcToRealDpcPath(const string& appId);

  // Ids of the required packages, joined by ";"; empty when the application names none.
  std::string GetDpcList(const string& appId);

  // Called per metadata entry: stores the value of the first key that names required packages in
  // `*userData`, a std::string, and returns false to stop there. `userData` may be null.
  static bool dpc_metadata_cb(const char* key, const char* value, void* userData);

 private:
  int placeholderCount_;
  std::vector<int> placeholders_;
  std::string extraDllPath_;
};

// Puts the application's own copies of the platform's TV API in front of the wrapped strategy's
// list, so that the runtime sees them first.
class ApitestDecorate : public Decorator {
 public:
  explicit ApitestDecorate(PluginStrategy* wrapped);

  // Ends with ":" where the application has such files and the wrapped strategy's list is empty.
  std::string GetTPA() override;
};

// Names the plain assembly in place of every native image of the wrapped strategy's list. The plain
// assembly is taken to lie beside its image.
class AotRemoverDecorate : public Decorator {
 public:
  explicit AotRemoverDecorate(PluginStrategy* wrapped);

  std::string GetTPA() override;
};
