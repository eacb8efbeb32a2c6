// What the exported functions keep between calls. One process serves one launch, so each is the
// process's. Null, zero or empty when the library is loaded.
#pragma once

#include <quillon_tv_plugin.h>

#include <cstdint>
#include <string>

#include "plugin/include-internal/plugin-strategy.h"

// How the exported functions reach the strategy that serves the process.
struct PluginContext {
  PluginStrategy* strategy;  // outermost object of the chain
};

// Null until plugin_initialize has chosen a strategy. Context and chain live until the process
// ends; those that another plugin_initialize replaces are abandoned.
extern PluginContext* tvPluginMgr;

// The buffers that the launcher sees: each holds the last result of one list function.
extern std::string tpalist;
extern std::string plugindllPath;
extern std::string extraDllPath;

// 1 once plugin_set_app_info has seen the id of a component that is called directly.
extern std::int32_t directCallMode;

// Set when plugin_preload was called, whatever came of it.
extern bool is_plugin_preload_called;

// The runtime, as plugin_set_coreclr_info got it.
extern void* m_hostHandle;
extern unsigned int m_domainId;
extern coreclr_create_delegate_ptr m_createDelegate;
