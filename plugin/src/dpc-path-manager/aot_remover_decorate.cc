#include "plugin/include-internal/dpc-path-manager.h"
#include "util/zq_utils/paths.h"

AotRemoverDecorate::AotRemoverDecorate(PluginStrategy* wrapped) : Decorator(wrapped) {
  QLOG_SCOPE();
}

std::string AotRemoverDecorate::GetTPA() {
  QLOG_SCOPE();
  return replaceAll(Decorator::GetTPA(), ".ni.dll", ".dll");
}
