#include <quillon_tv_plugin.h>

#include "plugin-strategy.h"
