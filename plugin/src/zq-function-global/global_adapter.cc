#include "plugin/src/zq-function-global/global_adapter.h"

#include "util/log/log.h"

GlobalAdapter* globalAdapter = new GlobalAdapter(new GlobalManager);

void GlobalAdapter::initialize() {
  QLOG_SCOPE();
  manager_->initialize();
}

void GlobalAdapter::set_app_info(const std::string& appInfo) {
  QLOG_SCOPE();
  manager_->set_app_info(appInfo);
}

std::string GlobalAdapter::get_dll_path() {
  QLOG_SCOPE();
  return manager_->get_dll_path();
}

void GlobalAdapter::set_coreclr_info(void* hostHandle, unsigned int domainId,
                                     coreclr_create_delegate_ptr createDelegate) {
  QLOG_SCOPE();
  manager_->set_coreclr_info(hostHandle, domainId, createDelegate);
}

void GlobalAdapter::before_execute() {
  QLOG_SCOPE();
  manager_->before_execute();
}
