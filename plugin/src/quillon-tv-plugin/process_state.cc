#include "plugin/src/quillon-tv-plugin/process_state.h"

PluginContext* tvPluginMgr = nullptr;

std::string extraDllPath;
std::string plugindllPath;
std::string tpalist;

std::int32_t directCallMode = 0;
bool is_plugin_preload_called = false;
bool checkOnTerminate = false;

void* m_hostHandle = nullptr;
unsigned int m_domainId = 0;
coreclr_create_delegate_ptr m_createDelegate = nullptr;
