// A strategy that records its calls and returns the results that the test sets.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "plugin/include-internal/plugin-strategy.h"

namespace quillon::test {

struct FakeStrategy : PluginStrategy {
  ~FakeStrategy() override { onDestroy(); }
  void Initialize() override { note("Initialize()"); }
  void Preload() override { note("Preload()"); }
  void SetAppInfo(const std::string& appId, const std::string& execPath) override {
    note("SetAppInfo(" + appId + ", " + execPath + ")");
  }
  std::string GetDllPath() override { return note("GetDllPath()"), dll; }
  std::string GetExtraDllPath() override { return note("GetExtraDllPath()"), extra; }
  std::string GetTPA() override { return note("GetTPA()"), tpa; }
  void Finalize() override { note("Finalize()"); }

  void note(const std::string& call) {
    calls.push_back(call);
    onCall();
  }

  std::vector<std::string> calls;
  std::string dll = "dll";
  std::string extra = "extra";
  std::string tpa = "tpa";
  std::function<void()> onCall = [] {};
  std::function<void()> onDestroy = [] {};
};

}  // namespace quillon::test
