// Which launch strategy serves an application type.
#pragma once

#include <string>

#include "plugin/include-internal/plugin-strategy.h"

// Marks the mode that `appType` selects and builds its chain. Returns the outermost object, which
// is never freed; null, with nothing marked, for a type that selects no mode.
PluginStrategy* buildStrategyChain(const std::string& appType);
