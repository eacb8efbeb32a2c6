#include "plugin/src/quillon-tv-plugin/preload_method.h"

#include "plugin/src/plugin-util/managed_method.h"
#include "plugin/src/quillon-tv-plugin/process_state.h"

int createPreloadMethod(const char* method, void** function) {
  return createManagedMethod({m_hostHandle, m_domainId, m_createDelegate}, "Preload",
                             "Velora.Preload", method, function);
}
