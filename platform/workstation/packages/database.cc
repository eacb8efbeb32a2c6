#include "packages/database.h"

#include <sqlite3.h>

#include "path_failure.h"

namespace quillon::workstation {
namespace {

constexpr int kLockWaitMs = 10'000;

// By default SQLite allocates and touches twenty pages when a page cache gets its first page, but a
// lookup reads fewer than ten. Has no effect if the process has already initialized SQLite.
void leavePagesToMalloc() {
  [[maybe_unused]] static const int result = sqlite3_config(SQLITE_CONFIG_PAGECACHE, nullptr, 0, 0);
}

}  // namespace

void Database::Close::operator()(sqlite3* connection) const { sqlite3_close(connection); }

void Statement::Finalize::operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }

Expected<Database> Database::open(const std::string& path, bool writable) {
  leavePagesToMalloc();
  Database database(path);
  sqlite3* connection = nullptr;
  const int flags = writable ? SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE : SQLITE_OPEN_READONLY;
  const int result =
      sqlite3_open_v2(path.c_str(), &connection, flags | SQLITE_OPEN_NOMUTEX, nullptr);
  database.connection_.reset(connection);
  if (result != SQLITE_OK) {
    return tl::unexpected(database.failure());
  }
  sqlite3_busy_timeout(connection, kLockWaitMs);
  if (!writable) {
    return database;
  }
  RETURN_IF_FAILED(database.run("PRAGMA foreign_keys = ON"));
  return database;
}

bool Database::isInTransaction() const { return sqlite3_get_autocommit(get()) == 0; }

Expected<void> Database::run(const char* sql) {
  if (sqlite3_exec(get(), sql, nullptr, nullptr, nullptr) == SQLITE_OK) {
    return {};
  }
  return tl::unexpected(failure());
}

Failure Database::failure() const {
  const int result = connection_ ? sqlite3_errcode(get()) : SQLITE_NOMEM;
  const std::string cause = connection_ ? sqlite3_errmsg(get()) : sqlite3_errstr(result);
  const bool damaged = result == SQLITE_NOTADB || result == SQLITE_CORRUPT;
  return {"the package registry '" + path_ + "' failed: " + cause,
          damaged                 ? "remove the file and install the packages again"
          : result == SQLITE_BUSY ? "try again when the other installation has ended"
                                  : kWritableRemedy};
}

Statement::Statement(const Database& database, const char* sql) : database_(database) {
  sqlite3_stmt* statement = nullptr;
  check(sqlite3_prepare_v2(database.get(), sql, -1, &statement, nullptr));
  statement_.reset(statement);
}

void Statement::check(int result) {
  if (failed_ || result == SQLITE_OK || result == SQLITE_ROW || result == SQLITE_DONE) {
    return;
  }
  failed_ = true;
  failure_ = database_.failure();
}

Statement& Statement::bind(const std::string& text) {
  if (failed_) {
    return *this;
  }
  check(sqlite3_bind_text(statement_.get(), ++parameter_, text.data(),
                          static_cast<int>(text.size()), SQLITE_TRANSIENT));
  return *this;
}

Statement& Statement::bind(int64_t number) {
  if (failed_) {
    return *this;
  }
  check(sqlite3_bind_int64(statement_.get(), ++parameter_, number));
  return *this;
}

bool Statement::step() {
  if (failed_) {
    return false;
  }
  const int result = sqlite3_step(statement_.get());
  check(result);
  return result == SQLITE_ROW;
}

std::string Statement::text(int column) const {
  const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement_.get(), column));
  const int length = sqlite3_column_bytes(statement_.get(), column);
  return bytes == nullptr ? std::string() : std::string(bytes, static_cast<size_t>(length));
}

int64_t Statement::number(int column) const {
  return sqlite3_column_int64(statement_.get(), column);
}

Expected<void> Statement::finish() {
  while (step()) {
  }
  sqlite3_reset(statement_.get());
  if (failed_) {
    return tl::unexpected(failure_);
  }
  return {};
}

Transaction::~Transaction() {
  if (open_) {
    sqlite3_exec(database_.get(), "ROLLBACK", nullptr, nullptr, nullptr);
  }
}

Expected<void> Transaction::begin() {
  auto begun = database_.run("BEGIN IMMEDIATE");
  open_ = begun.has_value();
  return begun;
}

Expected<void> Transaction::commit() {
  auto committed = database_.run("COMMIT");
  if (committed) {
    open_ = false;
  }
  return committed;
}

}  // namespace quillon::workstation
