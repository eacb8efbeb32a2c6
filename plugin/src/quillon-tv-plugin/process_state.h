// The state that the exported functions keep between calls. A process runs one launch, so the state
// is global. All variables are null, zero or empty when the library is loaded.
#pragma once

#include <cstdint>
#include <string>

#include "plugin/include-internal/plugin-strategy.h"
#include "quillon_tv_plugin.h"

// Gives the exported functions access to the strategy of the process.
struct PluginContext {
  PluginStrategy* strategy;  // outermost object of the chain
};

// Null until plugin_initialize has selected a strategy. The context and the chain are never freed,
// also if another plugin_initialize replaces them.
extern PluginContext* tvPluginMgr;

// The strings that the launcher sees: each one holds the last result of one list function.
extern std::string tpalist;
extern std::string plugindllPath;
extern std::string extraDllPath;

// 1 if plugin_set_app_info was called with the id of a component that is called directly.
extern std::int32_t directCallMode;

// Set when plugin_preload is called, whether it succeeds or not.
extern bool is_plugin_preload_called;

// The runtime that plugin_set_coreclr_info received.
extern void* m_hostHandle;
extern unsigned int m_domainId;
extern coreclr_create_delegate_ptr m_createDelegate;
