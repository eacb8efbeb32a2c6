// The registry's tables.
#pragma once

#include "packages/database.h"

namespace quillon::workstation {

enum class Schema { kMissing, kCurrent };

// Returns whether the database has the tables. Tables of a newer version are a failure.
Expected<Schema> schemaOf(Database& database);

// Creates the tables if they are missing.
Expected<void> ensureSchema(Database& database);

}  // namespace quillon::workstation
