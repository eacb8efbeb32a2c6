// RAII wrappers of SQLite: a database in memory and a prepared statement.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "quillon/base/failure.h"

struct sqlite3;
struct sqlite3_stmt;

namespace quillon::workstation {

// A database in memory. Its bytes are those of an SQLite database file. Thread safety: one thread
// at a time may use it and its statements.
class Database {
 public:
  // A copy of the database file with these bytes. An empty file is an empty database.
  static Expected<Database> fromBytes(std::string_view bytes);

  // The bytes of a database file that SQLite changes in place. Recovers the file first: SQLite
  // rolls back what an interrupted process has left in the file's journal.
  static Expected<std::string> recoverFile(const char* path);

  [[nodiscard]] Expected<std::string> bytes() const;

  // Runs statements that have no parameters and no results.
  Expected<void> run(const char* sql);

  // The failure of the latest call, with SQLite's error message.
  [[nodiscard]] Failure failure() const;

  [[nodiscard]] sqlite3* get() const { return connection_.get(); }

 private:
  struct Close {
    void operator()(sqlite3* connection) const;
  };
  static Expected<Database> open(const char* name);
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

}  // namespace quillon::workstation
