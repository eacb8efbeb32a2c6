// SQLite with owners: a connection, a prepared statement, a transaction.
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
  // Opens the database file. Without `writable` the file must exist and is never changed. A lock
  // held by another process is waited for, up to ten seconds for each statement.
  static Expected<Database> open(const std::string& path, bool writable);

  // Runs statements that have no parameters and no results.
  Expected<void> run(const char* sql);

  [[nodiscard]] bool isInTransaction() const;

  // The failure of the latest call, as the database words it.
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

// One prepared statement. A failure of any call is kept and returned by finish(), so that a row
// loop reads as one:
//
//   Statement query(database, "SELECT id FROM package WHERE owner = ?1");
//   query.bind(owner);
//   while (query.step()) use(query.text(0));
//   RETURN_IF_FAILED(query.finish());
class Statement {
 public:
  Statement(const Database& database, const char* sql);

  // Give the parameters in order.
  Statement& bind(const std::string& text);
  Statement& bind(int64_t number);

  // Moves to the next row; false at the end and on failure.
  bool step();

  [[nodiscard]] std::string text(int column) const;
  [[nodiscard]] int64_t number(int column) const;

  // Runs the statement to its end and tells how all of it went.
  Expected<void> finish();

 private:
  struct Finalize {
    void operator()(sqlite3_stmt* statement) const;
  };
  void note(int result);
  const Database& database_;
  std::unique_ptr<sqlite3_stmt, Finalize> statement_;
  int parameter_ = 0;
  bool failed_ = false;
  Failure failure_;
};

// A writing transaction: rolled back at the end of its life unless committed.
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
