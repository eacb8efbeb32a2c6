// Selects the launch strategy for an application type.
#pragma once

#include <string>

#include "plugin/include-internal/plugin-strategy.h"

// Logs the milestone of the mode that `appType` selects and builds the strategy chain. Returns the
// outermost object, which is never freed. Returns null and logs nothing if `appType` selects no
// mode.
PluginStrategy* buildStrategyChain(const std::string& appType);
