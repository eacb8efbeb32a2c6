// The registry's tables.
#pragma once

#include "packages/database.h"

namespace quillon::workstation {

enum class Schema { kMissing, kCurrent };

// Which tables the database has. Those of a newer quillon are a failure.
Expected<Schema> schemaOf(Database& database);

// Makes the tables where they are missing; several processes may do so at once.
Expected<void> ensureSchema(Database& database);

}  // namespace quillon::workstation
