// SQLite: owners of a connection and of its statements, whose errors are exceptions.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

/// A prepared statement. Parameters are numbered from 1, columns of the result from 0. Belongs to its Database.
class Statement {
 public:
  Statement(sqlite3* connection, const std::string& path, std::string_view sql);

  /// Sets a parameter. A text has to live until the statement has been run.
  void bind(int parameter, std::string_view text);
  /// Sets a parameter to a copy of `text`.
  void bindCopy(int parameter, std::string_view text);
  void bind(int parameter, std::int64_t number);
  void bind(int parameter, double number);
  void bindNull(int parameter);

  /// Takes the statement to its next row. False when there is none. Throws UserError.
  bool step();
  /// Runs it to its end, and makes it ready for being run again. Parameters keep their values. Throws UserError.
  void run();
  /// The number that comes first in its first row, 0 when there is no row; ready for being run again. Throws UserError.
  std::int64_t takeNumber();

 private:
  struct Finalize {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
  };

  sqlite3* connection_;
  const std::string& path_;
  std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

/// A connection to a database. A transaction that has not been committed is rolled back at its end, and a file that was
/// made for it removed.
class Database {
 public:
  enum class Mode { Existing, New };

  /// Opens the database `path`; with Mode::New, makes the file if it is missing. Throws UserError.
  Database(const std::string& path, Mode mode);
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;
  ~Database();

  /// Begins a transaction that may write; waits some seconds for others to end theirs. Throws UserError.
  void begin();
  /// Makes the transaction permanent. Throws UserError, also when the file has been removed or replaced meanwhile.
  void commit();
  /// Runs the statements in `sql`, whose results are dropped. Throws UserError.
  void execute(const char* sql);
  /// `sql` made ready for being run. Throws UserError.
  Statement prepare(std::string_view sql) { return {connection_.get(), path_, sql}; }
  /// The number that `sql` has for its result. Throws UserError.
  std::int64_t number(std::string_view sql) { return prepare(sql).takeNumber(); }

 private:
  struct Close {
    void operator()(sqlite3* connection) const { sqlite3_close_v2(connection); }
  };

  const std::string path_;
  bool isMadeHere_;
  std::unique_ptr<sqlite3, Close> connection_;
};
