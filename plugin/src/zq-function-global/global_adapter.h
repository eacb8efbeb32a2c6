// The implementation of `Target`: traces each operation and delegates it to GlobalManager.
#pragma once

#include <memory>
#include <string>

#include "plugin/src/zq-function-global/global_manager.h"
#include "plugin/src/zq-function-global/target.h"

class GlobalAdapter : public Target {
 public:
  // Takes ownership of `manager`.
  explicit GlobalAdapter(GlobalManager* manager) : manager_(manager) {}

  void initialize() override;

  // These two functions and before_execute throw std::runtime_error("NotImplementedException").
  void set_app_info(const std::string& appInfo) override;
  std::string get_dll_path() override;

  void set_coreclr_info(void* hostHandle, unsigned int domainId,
                        coreclr_create_delegate_ptr createDelegate) override;

  void before_execute() override;

 private:
  std::unique_ptr<GlobalManager> manager_;
};

// The adapter of the process. Created when the library is loaded and never destroyed.
extern GlobalAdapter* globalAdapter;
