// Owner classes for an SQLite connection and its statements, for `export`. Errors become exceptions.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

/// A prepared statement. Parameters are numbered from 1, result columns from 0. Must not outlive its Database.
class Statement {
 public:
  Statement(sqlite3* connection, const std::string& path, std::string_view sql);

  /// Sets a parameter. `text` must live until the statement has been run.
  void bind(int parameter, std::string_view text);
  /// Sets a parameter to a copy of `text`.
  void bindCopy(int parameter, std::string_view text);
  void bind(int parameter, std::int64_t number);
  void bind(int parameter, double number);
  void bindNull(int parameter);

  /// Advances to the next row of the result. False when there is none. Throws UserError.
  bool step();
  /// Runs the statement to completion and resets it. Parameters keep their values. Throws UserError.
  void run();
  /// Runs the statement and resets it. Returns the number in the first column of the first row, 0 if there is no row.
  /// Throws UserError.
  std::int64_t runForNumber();

 private:
  struct Finalize {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
  };

  sqlite3* connection_;
  const std::string& path_;
  std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

/// A connection to a database. Its destructor rolls back a transaction that has not been committed, and removes a file
/// that was created for it.
class Database {
 public:
  enum class Mode { Existing, New };

  /// Opens the database `path`; with Mode::New, creates the file if it does not exist. Throws UserError.
  Database(const std::string& path, Mode mode);
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;
  ~Database();

  /// Begins a write transaction. Waits up to five seconds for those of other programs to end. Throws UserError.
  void begin();
  /// Commits the transaction. Throws UserError, also when the file was removed or replaced in the meantime.
  void commit();
  /// Runs the statements in `sql` and discards their results. Throws UserError.
  void execute(const char* sql);
  /// Prepares `sql`. Throws UserError.
  Statement prepare(std::string_view sql) { return {connection_.get(), path_, sql}; }
  /// The number that is the result of `sql`. Throws UserError.
  std::int64_t number(std::string_view sql) { return prepare(sql).runForNumber(); }

 private:
  struct Close {
    void operator()(sqlite3* connection) const { sqlite3_close_v2(connection); }
  };

  const std::string path_;
  bool isNew_;  // whether the file was created for this connection
  std::unique_ptr<sqlite3, Close> connection_;
};
