// RAII wrappers of SQLite: a connection, a prepared statement, a transaction.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "quillon/base/failure.h"

struct sqlite3;
struct sqlite3_stmt;

namespace quillon::workstation {

// A connection. Thread safety: one thread at a time may use it and its statements.
class Database {
 public:
  // Opens the database file. Without `writable` the file must exist and is never changed. Each
  // statement waits up to ten seconds for a lock that another process holds.
  static Expected<Database> open(const std::string& path, bool writable);

  // Runs statements that have no parameters and no results.
  Expected<void> run(const char* sql);

  [[nodiscard]] bool isInTransaction() const;

  // The failure of the latest call, with SQLite's error message.
  [[nodiscard]] Failure failure() const;

  [[nodiscard]] sqlite3* get() const { return connection_.get(); }

 private:
  struct Close {
    void operator()(sqlite3* connection) const;
  };
  explicit Database(std::string path) : path_(std::move(path)) {}
  std::string path_;
  std::unique_ptr<sqlite3, Close> connection_;
};

// A prepared statement. finish() returns the first failure of any call, so that a loop over rows
// needs no other check:
//
//   Statement query(database, "SELECT id FROM package WHERE owner = ?1");
//   query.bind(owner);
//   while (query.step()) use(query.text(0));
//   RETURN_IF_FAILED(query.finish());
class Statement {
 public:
  Statement(const Database& database, const char* sql);

  // Binds the next parameter.
  Statement& bind(const std::string& text);
  Statement& bind(int64_t number);

  // Moves to the next row. Returns false after the last row and on failure.
  bool step();

  [[nodiscard]] std::string text(int column) const;
  [[nodiscard]] int64_t number(int column) const;

  // Runs the statement to its end and returns the first failure, if any.
  Expected<void> finish();

 private:
  struct Finalize {
    void operator()(sqlite3_stmt* statement) const;
  };
  void check(int result);
  const Database& database_;
  std::unique_ptr<sqlite3_stmt, Finalize> statement_;
  int parameter_ = 0;
  bool failed_ = false;
  Failure failure_;
};

// A write transaction. The destructor rolls it back unless it was committed.
class Transaction {
 public:
  explicit Transaction(Database& database) : database_(database) {}
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  Expected<void> begin();
  Expected<void> commit();

 private:
  Database& database_;
  bool open_ = false;
};

}  // namespace quillon::workstation
