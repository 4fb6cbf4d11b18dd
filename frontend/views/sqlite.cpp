#include "frontend/views/sqlite.h"

#include <filesystem>
#include <unordered_map>

#include "frontend/database.h"
#include "frontend/endingSignals.h"
#include "frontend/texts.h"
#include "src/userError.h"

namespace {

// The SQLite application ID of databases of tolquin: "tolq".
constexpr std::int64_t applicationId = 0x746f6c71;
constexpr std::int64_t schemaVersion = 1;
// The ids of an executable's variables start at its own id times this, so that they are adjacent in the table.
constexpr std::int64_t idsOfExecutable = std::int64_t{1} << 32;

// Both `variable` and the view `variables` have the fields of a variable as columns, in their order.
constexpr const char* schema = R"(
CREATE TABLE executable (
  id INTEGER PRIMARY KEY,
  path TEXT NOT NULL UNIQUE,
  build_id TEXT,
  directory TEXT,
  modified INTEGER
);
CREATE TABLE file (id INTEGER PRIMARY KEY, name TEXT NOT NULL UNIQUE);
CREATE TABLE type (id INTEGER PRIMARY KEY, name TEXT NOT NULL UNIQUE);
CREATE TABLE variable (
  id INTEGER PRIMARY KEY,
  executable INTEGER NOT NULL REFERENCES executable (id),
  name TEXT NOT NULL,
  type INTEGER REFERENCES type (id),
  size INTEGER,
  section TEXT,
  writable INTEGER,
  thread_local INTEGER,
  linkage TEXT,
  file INTEGER REFERENCES file (id),
  line INTEGER,
  address INTEGER
);
)";

constexpr const char* views = R"(
CREATE VIEW IF NOT EXISTS variables AS
SELECT executable.path AS executable, variable.name AS name, type.name AS type, size, section, writable, thread_local,
       linkage, file.name AS file, line, CASE WHEN address IS NOT NULL THEN printf('0x%x', address) END AS address
FROM variable
JOIN executable ON executable.id = variable.executable
LEFT JOIN type ON type.id = variable.type
LEFT JOIN file ON file.id = variable.file;

CREATE VIEW IF NOT EXISTS shared_names AS
SELECT name, count(DISTINCT executable) AS executables, count(DISTINCT type) AS types, count(DISTINCT size) AS sizes
FROM variable
WHERE linkage = 'external'
GROUP BY name
HAVING executables > 1;
)";

// A view of the bytes by @, which is "file" or "type". Bytes that several variables share count only for the first.
constexpr const char* bytesView = R"(
CREATE VIEW IF NOT EXISTS bytes_by_@ AS
WITH placed AS (
  SELECT @, coalesce(size, 0) AS size, size IS NULL AS unsized,
         max(address + coalesce(size, 0)) OVER before - address AS shared
  FROM variable
  WINDOW before AS (PARTITION BY executable, section, coalesce(thread_local, 0), @ ORDER BY address
                    ROWS BETWEEN UNBOUNDED PRECEDING AND 1 PRECEDING)
)
SELECT name AS @, count(*) AS variables,
       CAST(total(max(size - max(coalesce(shared, 0), 0), 0)) AS INTEGER) AS bytes, sum(unsized) AS unsized
FROM placed LEFT JOIN @ ON @.id = placed.@
GROUP BY placed.@;
)";

std::string bytesViewOf(std::string_view table) {
  std::string sql = bytesView;
  for (std::size_t at = 0; (at = sql.find('@', at)) != std::string::npos;) sql.replace(at, 1, table);
  return sql;
}

// Creates the tables and views in an empty database.
void createSchema(Database& database) {
  const std::string sql = "PRAGMA application_id = " + std::to_string(applicationId) +
                          ";\nPRAGMA user_version = " + std::to_string(schemaVersion) + ";\n" + schema;
  database.execute(sql.c_str());
}

// Creates the views that are missing.
void createViews(Database& database) { database.execute((views + bytesViewOf("file") + bytesViewOf("type")).c_str()); }

// Sets a parameter to `text` as valid UTF-8, or to NULL if it is empty.
void bindText(Statement& statement, int parameter, std::string_view text) {
  if (text.empty()) return statement.bindNull(parameter);
  if (plainLength(text) == text.size()) return statement.bind(parameter, text);
  statement.bindCopy(parameter, validText(text));
}

// A table that stores each distinct text once and assigns it an id.
class Dictionary {
 public:
  Dictionary(Database& database, const std::string& table)
      : find_(database.prepare("SELECT id FROM " + table + " WHERE name = ?")),
        insert_(database.prepare("INSERT INTO " + table + " (name) VALUES (?) RETURNING id")) {}

  // The id of `text`, which must outlive this object.
  std::int64_t idOf(std::string_view text) {
    if (text.data() == last_.data() && text.size() == last_.size()) return lastId_;
    const auto [at, isNew] = ids_.try_emplace(text, 0);
    if (isNew) at->second = idInTable(text);
    last_ = text;
    return lastId_ = at->second;
  }

 private:
  std::int64_t idInTable(std::string_view text) {
    bindText(find_, 1, text);
    if (const std::int64_t number = find_.runForNumber(); number > 0) return number;
    bindText(insert_, 1, text);
    return insert_.runForNumber();
  }

  Statement find_;
  Statement insert_;
  std::unordered_map<std::string_view, std::int64_t> ids_;
  std::string_view last_{};  // adjacent rows often have the same text
  std::int64_t lastId_ = 0;
};

// The statement that inserts `count` variables.
std::string insertionOf(std::ptrdiff_t count) {
  std::string columns = "id";
  std::string parameters = "(?";
  for (const Field<Row>& field : variableFields) {
    columns.append(", ").append(field.name);
    parameters += ", ?";
  }
  parameters += ")";
  std::string values = parameters;
  for (std::ptrdiff_t i = 1; i < count; ++i) values.append(", ").append(parameters);
  return "INSERT OR REPLACE INTO variable (" + columns + ") VALUES " + values;
}

// The absolute path of `executable`, without "." and "..": the key of a program in the database.
std::string absolutePath(const std::string& executable) {
  std::error_code error;
  std::filesystem::path path;
  for (const std::filesystem::path& part : std::filesystem::absolute(executable, error)) {
    if (part == "..") {
      // The parent of a symbolic link is the parent of its target.
      std::error_code missing;
      if (std::filesystem::is_symlink(path, missing)) path = std::filesystem::weakly_canonical(path, missing);
      path = path.parent_path();
    } else if (part != ".") {
      path /= part;
    }
  }
  if (error) throw UserError(executable + ": cannot determine its absolute path: " + error.message());
  return path;
}

// Writes inventories within a transaction.
class InventoryWriter {
 public:
  explicit InventoryWriter(Database& database)
      : database_(database),
        types_(database, "type"),
        files_(database, "file"),
        insertMany_(database.prepare(insertionOf(rowsAtATime))) {}

  // Replaces the variables of `program` with the rows from `begin` to `end`.
  void write(const Inventory& program, const Row* begin, const Row* end) {
    executable_ = writeExecutable(program);
    std::int64_t id = executable_ * idsOfExecutable;
    const std::int64_t endId = id + idsOfExecutable;
    replaced_ = replaced_ || runOnIds("SELECT 1 FROM variable WHERE id >= ? AND id < ?", id, endId) > 0;
    // New rows overwrite old ones with the same id; the remaining old rows are deleted below.
    for (; end - begin >= rowsAtATime; begin += rowsAtATime, id += rowsAtATime) {
      insert(insertMany_, begin, rowsAtATime, id);
    }
    if (const std::ptrdiff_t left = end - begin; left > 0) {
      Statement insertRest = database_.prepare(insertionOf(left));
      insert(insertRest, begin, left, id);
      id += left;
    }
    runOnIds("DELETE FROM variable WHERE id >= ? AND id < ?", id, endId);
  }

  // Removes files and types that are no longer used.
  void removeUnused() {
    if (!replaced_) return;
    database_.execute(
        "DELETE FROM file WHERE id NOT IN (SELECT file FROM variable WHERE file IS NOT NULL);"
        "DELETE FROM type WHERE id NOT IN (SELECT type FROM variable WHERE type IS NOT NULL);");
  }

 private:
  // Runs a statement on the ids in [begin, end). Returns the number that it yields, 0 if none.
  std::int64_t runOnIds(std::string_view sql, std::int64_t begin, std::int64_t end) {
    Statement statement = database_.prepare(sql);
    statement.bind(1, begin);
    statement.bind(2, end);
    return statement.runForNumber();
  }

  std::int64_t writeExecutable(const Inventory& program) {
    Statement insertion = database_.prepare(
        "INSERT INTO executable (path, build_id, directory, modified) VALUES (?, ?, ?, ?) ON CONFLICT (path) DO UPDATE "
        "SET build_id = excluded.build_id, directory = excluded.directory, modified = excluded.modified RETURNING id");
    const std::string path = absolutePath(program.executable);
    bindText(insertion, 1, path);
    bindText(insertion, 2, program.buildId);
    bindText(insertion, 3, program.directory);
    if (program.modified) insertion.bind(4, *program.modified);
    return insertion.runForNumber();
  }

  // A column of the table `variable`, except the id.
  struct TableColumn {
    const Field<Row>* field;
    Dictionary* dictionary;  // the table of its texts; null if the column holds its values directly
    bool isExecutable;
  };

  std::vector<TableColumn> tableColumns() {
    std::vector<TableColumn> columns;
    for (const Field<Row>& field : variableFields) {
      Dictionary* dictionary = field.name == "type" ? &types_ : field.name == "file" ? &files_ : nullptr;
      columns.push_back({&field, dictionary, field.name == "executable"});
    }
    return columns;
  }

  void insert(Statement& statement, const Row* begin, std::ptrdiff_t count, std::int64_t id) {
    int parameter = 1;
    for (const Row* row = begin; row != begin + count; ++row) {
      statement.bind(parameter++, id++);
      for (const TableColumn& column : columns_) bindField(statement, parameter++, column, *row);
    }
    statement.run();
  }

  void bindField(Statement& statement, int parameter, const TableColumn& column, const Row& row) {
    if (column.isExecutable) return statement.bind(parameter, executable_);
    const Value value = column.field->get(row);
    if (!value.known) return statement.bindNull(parameter);
    if (column.dictionary != nullptr) return statement.bind(parameter, column.dictionary->idOf(value.text));
    if (column.field->kind == Kind::Text) return bindText(statement, parameter, value.text);
    const auto number = static_cast<std::int64_t>(value.number);
    // SQLite's integers are signed: an address keeps its bits, a larger size becomes a floating-point number.
    if (number < 0 && column.field->kind != Kind::Address) {
      return statement.bind(parameter, static_cast<double>(value.number));
    }
    statement.bind(parameter, number);
  }

  // Inserting this many rows at a time takes half as long as one at a time.
  static constexpr std::ptrdiff_t rowsAtATime = 64;

  Database& database_;
  Dictionary types_;
  Dictionary files_;
  Statement insertMany_;
  std::vector<TableColumn> columns_ = tableColumns();
  std::int64_t executable_ = 0;
  bool replaced_ = false;
};

// Throws UserError when `database` belongs to another program or version. Returns whether it is empty.
bool checkOwner(Database& database, const std::string& path) {
  const std::int64_t application = database.number("PRAGMA application_id");
  const std::int64_t version = database.number("PRAGMA user_version");
  if (application == applicationId && version == schemaVersion) return false;
  if (application == applicationId) {
    throw UserError(path + ": was created by a different version of tolquin (schema " + std::to_string(version) +
                    ", not " + std::to_string(schemaVersion) + "); export to a new file");
  }
  const bool isEmpty = database.number("SELECT count(*) FROM sqlite_schema") == 0;
  if (isEmpty && application == 0 && version == 0) return true;
  throw UserError(path + ": is the database of another program");
}

bool isNewOrEmpty(const std::string& path) {
  std::error_code error;
  const auto status = std::filesystem::status(path, error);
  return !exists(status) || (is_regular_file(status) && std::filesystem::file_size(path, error) == 0);
}

}  // namespace

void checkDatabase(const std::string& path) {
  std::error_code error;
  const auto status = std::filesystem::status(path, error);
  if (exists(status) && !is_regular_file(status)) throw UserError(path + ": is not a regular file");
  if (const auto directory = std::filesystem::path(path).parent_path();
      !directory.empty() && !std::filesystem::is_directory(directory, error)) {
    throw UserError(path + ": directory " + directory.string() + " does not exist");
  }
  if (isNewOrEmpty(path)) return;
  Database database(path, Database::Mode::Existing);
  checkOwner(database, path);
}

void writeDatabase(const std::string& path, const std::vector<const Inventory*>& programs,
                   const std::vector<Row>& rows) {
  const EndingSignals signals;
  Database database(path, Database::Mode::New);
  // Larger pages (in a new database) and a larger cache than the defaults reduce disk writes and syncs.
  database.execute("PRAGMA page_size = 8192; PRAGMA cache_size = -16000");
  database.begin();
  if (checkOwner(database, path)) createSchema(database);
  createViews(database);
  {
    InventoryWriter writer(database);
    const Row* next = rows.data();
    const Row* const last = next + rows.size();
    for (const Inventory* program : programs) {
      const Row* const begin = next;
      while (next != last && next->program == program) ++next;
      writer.write(*program, begin, next);
    }
    writer.removeUnused();
  }
  database.commit();
}
