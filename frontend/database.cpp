#include "frontend/database.h"

#include <filesystem>

#include "frontend/endingSignals.h"
#include "src/userError.h"

namespace {

// The user-readable reason for the SQLite error `code`.
std::string reasonOf(sqlite3* connection, int code) {
  switch (code & 0xff) {
    case SQLITE_NOTADB:
      return "is not an SQLite database";
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      return "is locked by another program";
    case SQLITE_READONLY:
      return "is read-only";
    case SQLITE_FULL:
      return "cannot be written: the disk is full";
    case SQLITE_CORRUPT:
      return "is damaged";
    case SQLITE_INTERRUPT:
      return "was not changed, because the program was interrupted";
    case SQLITE_CANTOPEN:
      return "cannot be opened, or no file can be created next to it";
    default:
      return std::string("cannot be used: ") +
             (connection != nullptr ? sqlite3_errmsg(connection) : "not enough memory");
  }
}

void check(sqlite3* connection, const std::string& path, int code) {
  if (code != SQLITE_OK) throw UserError(path + ": " + reasonOf(connection, code));
}

bool fileExists(const std::string& path) {
  std::error_code error;
  return std::filesystem::exists(path, error);
}

// Busy handler: whether to wait again for a database that another program uses, after waiting `times` times.
int waitForOthers(void*, int times) {
  constexpr int pauseMilliseconds = 50;
  constexpr int timeoutMilliseconds = 5000;
  if (EndingSignals::pending() || times * pauseMilliseconds >= timeoutMilliseconds) return 0;
  sqlite3_sleep(pauseMilliseconds);
  return 1;
}

// Makes a pending signal interrupt a running statement.
void letSignalsInterrupt(sqlite3* connection) {
  constexpr int instructionsBetween = 1'000'000;
  const auto isInterrupted = [](void*) { return EndingSignals::pending() ? 1 : 0; };
  sqlite3_progress_handler(connection, instructionsBetween, isInterrupted, nullptr);
}

}  // namespace

Statement::Statement(sqlite3* connection, const std::string& path, std::string_view sql)
    : connection_(connection), path_(path) {
  sqlite3_stmt* statement = nullptr;
  check(connection, path,
        sqlite3_prepare_v2(connection, sql.data(), static_cast<int>(sql.size()), &statement, nullptr));
  statement_.reset(statement);
}

void Statement::bind(int parameter, std::string_view text) {
  check(connection_, path_,
        sqlite3_bind_text64(statement_.get(), parameter, text.data(), text.size(), SQLITE_STATIC, SQLITE_UTF8));
}

void Statement::bindCopy(int parameter, std::string_view text) {
  check(connection_, path_,
        sqlite3_bind_text64(statement_.get(), parameter, text.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8));
}

void Statement::bind(int parameter, std::int64_t number) { sqlite3_bind_int64(statement_.get(), parameter, number); }

void Statement::bind(int parameter, double number) { sqlite3_bind_double(statement_.get(), parameter, number); }

void Statement::bindNull(int parameter) { sqlite3_bind_null(statement_.get(), parameter); }

bool Statement::step() {
  const int code = sqlite3_step(statement_.get());
  if (code == SQLITE_ROW) return true;
  if (code != SQLITE_DONE) check(connection_, path_, code);
  return false;
}

void Statement::run() {
  while (step()) continue;
  sqlite3_reset(statement_.get());
}

std::int64_t Statement::runForNumber() {
  const std::int64_t number = step() ? sqlite3_column_int64(statement_.get(), 0) : 0;
  sqlite3_reset(statement_.get());
  return number;
}

Database::Database(const std::string& path, Mode mode) : path_(path), isNew_(!fileExists(path)) {
  // Only one thread uses the library, and its memory statistics are not needed.
  sqlite3_config(SQLITE_CONFIG_SINGLETHREAD);
  sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
  const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | (mode == Mode::New ? SQLITE_OPEN_CREATE : 0);
  sqlite3* connection = nullptr;
  // SQLite gives some relative names, such as :memory:, a special meaning.
  const int code = sqlite3_open_v2(std::filesystem::absolute(path).c_str(), &connection, flags, nullptr);
  connection_.reset(connection);  // must be closed even if opening failed
  check(connection, path, code);
  if (sqlite3_db_readonly(connection, "main") == 1) throw UserError(path + ": is read-only");
  sqlite3_busy_handler(connection, waitForOthers, nullptr);
  letSignalsInterrupt(connection);
}

Database::~Database() {
  connection_.reset();
  std::error_code error;
  if (!isNew_ || std::filesystem::file_size(path_, error) != 0 || error) return;
  std::filesystem::remove(std::filesystem::canonical(path_, error), error);
}

void Database::begin() {
  const int code = sqlite3_exec(connection_.get(), "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
  // Another program is using the new file, so it must not be removed.
  if (code == SQLITE_BUSY) isNew_ = false;
  check(connection_.get(), path_, code);
}

void Database::commit() {
  int moved = 0;
  sqlite3_file_control(connection_.get(), "main", SQLITE_FCNTL_HAS_MOVED, &moved);
  if (moved != 0) throw UserError(path_ + ": was removed or replaced by another program; try again");
  execute("COMMIT");
}

void Database::execute(const char* sql) {
  check(connection_.get(), path_, sqlite3_exec(connection_.get(), sql, nullptr, nullptr, nullptr));
}
