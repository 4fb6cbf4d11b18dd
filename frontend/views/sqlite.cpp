#include "frontend/views/sqlite.h"

#include <unistd.h>

#include <filesystem>
#include <optional>
#include <unordered_map>

#include "frontend/database.h"
#include "frontend/endingSignals.h"
#include "frontend/texts.h"
#include "src/userError.h"

namespace {

// What marks a database as one of tolquin: "tolq".
constexpr std::int64_t applicationId = 0x746f6c71;
constexpr std::int64_t schemaVersion = 1;

// The columns of `variable` are the fields of a variable, and those of the view `variables` too, in their order.
constexpr const char* schema = R"(
PRAGMA application_id = 0x746f6c71;
PRAGMA user_version = 1;
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
  executable INTEGER NOT NULL REFERENCES executable (id),
  position INTEGER NOT NULL,
  name TEXT NOT NULL,
  type INTEGER REFERENCES type (id),
  size INTEGER,
  section TEXT,
  writable INTEGER,
  thread_local INTEGER,
  linkage TEXT,
  file INTEGER REFERENCES file (id),
  line INTEGER,
  address INTEGER,
  PRIMARY KEY (executable, position)
) WITHOUT ROWID;

CREATE VIEW variables AS
SELECT executable.path AS executable, variable.name AS name, type.name AS type, size, section, writable, thread_local,
       linkage, file.name AS file, line, CASE WHEN address IS NOT NULL THEN printf('0x%x', address) END AS address
FROM variable
JOIN executable ON executable.id = variable.executable
LEFT JOIN type ON type.id = variable.type
LEFT JOIN file ON file.id = variable.file;

-- Bytes that variables share with those before them count for these alone.
CREATE VIEW bytes_by_file AS
WITH placed AS (
  SELECT file, coalesce(size, 0) AS size, size IS NULL AS unsized,
         max(address + coalesce(size, 0)) OVER before - address AS shared
  FROM variable
  WINDOW before AS (PARTITION BY executable, section, thread_local, file ORDER BY address
                    ROWS BETWEEN UNBOUNDED PRECEDING AND 1 PRECEDING)
)
SELECT name AS file, count(*) AS variables,
       CAST(total(max(size - max(coalesce(shared, 0), 0), 0)) AS INTEGER) AS bytes, sum(unsized) AS unsized
FROM placed LEFT JOIN file ON file.id = placed.file
GROUP BY placed.file;

CREATE VIEW bytes_by_type AS
WITH placed AS (
  SELECT type, coalesce(size, 0) AS size, size IS NULL AS unsized,
         max(address + coalesce(size, 0)) OVER before - address AS shared
  FROM variable
  WINDOW before AS (PARTITION BY executable, section, thread_local, type ORDER BY address
                    ROWS BETWEEN UNBOUNDED PRECEDING AND 1 PRECEDING)
)
SELECT name AS type, count(*) AS variables,
       CAST(total(max(size - max(coalesce(shared, 0), 0), 0)) AS INTEGER) AS bytes, sum(unsized) AS unsized
FROM placed LEFT JOIN type ON type.id = placed.type
GROUP BY placed.type;

CREATE VIEW shared_names AS
SELECT name, count(DISTINCT executable) AS executables, count(DISTINCT type) AS types, count(DISTINCT size) AS sizes
FROM variable
WHERE coalesce(linkage, 'external') = 'external'
GROUP BY name
HAVING executables > 1;
)";

// `text` itself if it can be in a database, otherwise what stands for it there, which is kept in `made`.
std::string_view storable(std::string_view text, std::string& made) {
  if (plainLength(text) == text.size()) return text;
  return made = validText(text);
}

// A table that holds each text once, by number.
class Dictionary {
 public:
  Dictionary(Database& database, const std::string& table)
      : find_(database.prepare("SELECT id FROM " + table + " WHERE name = ?")),
        insert_(database.prepare("INSERT INTO " + table + " (name) VALUES (?) RETURNING id")) {}

  // The number of `text`, which lives as long as this object.
  std::int64_t numberOf(std::string_view text) {
    const auto [at, isNew] = numbers_.try_emplace(text, 0);
    if (isNew) at->second = numberInTable(text);
    return at->second;
  }

 private:
  std::int64_t numberInTable(std::string_view text) {
    std::string made;
    text = storable(text, made);
    find_.bind(1, text);
    if (const std::int64_t number = find_.takeNumber(); number > 0) return number;
    insert_.bind(1, text);
    return insert_.takeNumber();
  }

  Statement find_;
  Statement insert_;
  std::unordered_map<std::string_view, std::int64_t> numbers_;
};

std::string insertionOfVariable() {
  std::string columns = "position";
  std::string values = "?";
  for (const Field<Row>& field : variableFields) {
    columns.append(", ").append(field.name);
    values += ", ?";
  }
  return "INSERT INTO variable (" + columns + ") VALUES (" + values + ")";
}

// The path by which the program named `executable` is known, from wherever it is read.
std::string absolutePath(const std::string& executable) {
  std::error_code error;
  const std::filesystem::path path = std::filesystem::absolute(executable, error);
  if (error) throw UserError(executable + ": the current directory is not known: " + error.message());
  return path.lexically_normal();
}

// Writes into a transaction that has begun.
class InventoryWriter {
 public:
  explicit InventoryWriter(Database& database)
      : database_(database),
        types_(database, "type"),
        files_(database, "file"),
        insertVariable_(database.prepare(insertionOfVariable())) {}

  // Replaces `program` by its variables from `begin` to `end`.
  void write(const Inventory& program, const Row* begin, const Row* end) {
    executable_ = writeExecutable(program);
    Statement removal = database_.prepare("DELETE FROM variable WHERE executable = ?");
    removal.bind(1, executable_);
    removal.run();
    for (const Row* row = begin; row != end; ++row) writeVariable(*row, row - begin);
  }

  // Removes files and types that no variable has any more.
  void removeUnused() {
    database_.execute(
        "DELETE FROM file WHERE id NOT IN (SELECT file FROM variable WHERE file IS NOT NULL);"
        "DELETE FROM type WHERE id NOT IN (SELECT type FROM variable WHERE type IS NOT NULL);");
  }

 private:
  static void bindText(Statement& statement, int parameter, std::string_view text, std::string& made) {
    if (text.empty()) return statement.bindNull(parameter);
    statement.bind(parameter, storable(text, made));
  }

  std::int64_t writeExecutable(const Inventory& program) {
    Statement insertion = database_.prepare(
        "INSERT INTO executable (path, build_id, directory, modified) VALUES (?, ?, ?, ?) ON CONFLICT (path) DO UPDATE "
        "SET build_id = excluded.build_id, directory = excluded.directory, modified = excluded.modified RETURNING id");
    std::string texts[3];
    const std::string path = absolutePath(program.executable);
    bindText(insertion, 1, path, texts[0]);
    bindText(insertion, 2, program.buildId, texts[1]);
    bindText(insertion, 3, program.directory, texts[2]);
    if (program.modified) insertion.bind(4, *program.modified);
    return insertion.takeNumber();
  }

  void writeVariable(const Row& row, std::int64_t position) {
    insertVariable_.bind(1, position);
    int parameter = 2;
    std::array<std::string, variableFields.size()> made;
    for (const Field<Row>& field : variableFields) {
      bindField(parameter, field, row, made[static_cast<std::size_t>(parameter) - 2]);
      ++parameter;
    }
    insertVariable_.run();
  }

  void bindField(int parameter, const Field<Row>& field, const Row& row, std::string& made) {
    if (field.name == "executable") return insertVariable_.bind(parameter, executable_);
    const Value value = field.get(row);
    if (!value.known) return insertVariable_.bindNull(parameter);
    if (field.name == "type") return insertVariable_.bind(parameter, types_.numberOf(value.text));
    if (field.name == "file") return insertVariable_.bind(parameter, files_.numberOf(value.text));
    if (field.kind == Kind::Text) return insertVariable_.bind(parameter, storable(value.text, made));
    const auto number = static_cast<std::int64_t>(value.number);
    // SQLite's integers have a sign: of an address the bits count, of a size how large it is.
    if (number < 0 && field.kind != Kind::Address) {
      return insertVariable_.bind(parameter, static_cast<double>(value.number));
    }
    insertVariable_.bind(parameter, number);
  }

  Database& database_;
  Dictionary types_;
  Dictionary files_;
  Statement insertVariable_;
  std::int64_t executable_ = 0;
};

// Throws UserError when `database` belongs to something else. Returns whether there is nothing in it.
bool checkOwner(Database& database, const std::string& path) {
  const std::int64_t application = database.number("PRAGMA application_id");
  const std::int64_t version = database.number("PRAGMA user_version");
  if (application == applicationId && version == schemaVersion) return false;
  if (application == applicationId) {
    throw UserError(path + ": was made by another version of tolquin (schema " + std::to_string(version) + ", not " +
                    std::to_string(schemaVersion) + "); export into a new file");
  }
  const bool isEmpty = database.number("SELECT count(*) FROM sqlite_schema") == 0;
  if (isEmpty && application == 0 && version == 0) return true;
  throw UserError(path + ": is a database of another program");
}

bool isNewOrEmpty(const std::string& path) {
  std::error_code error;
  const auto status = std::filesystem::status(path, error);
  return !exists(status) || (is_regular_file(status) && std::filesystem::file_size(path, error) == 0);
}

// Removes a database that was new, unless all went well, while nobody else can be writing to it.
class Removal {
 public:
  explicit Removal(std::string file) : file_(std::move(file)) {}
  Removal(const Removal&) = delete;
  Removal& operator=(const Removal&) = delete;
  ~Removal() {
    if (!file_.empty()) unlink(file_.c_str());
  }
  void cancel() { file_.clear(); }

 private:
  std::string file_;
};

}  // namespace

void checkDatabase(const std::string& path) {
  std::error_code error;
  const auto status = std::filesystem::status(path, error);
  if (exists(status) && !is_regular_file(status)) throw UserError(path + ": is not a regular file");
  if (const auto directory = std::filesystem::path(path).parent_path();
      !directory.empty() && !std::filesystem::is_directory(directory, error)) {
    throw UserError(path + ": there is no directory " + directory.string());
  }
  if (isNewOrEmpty(path)) return;
  Database database(path, Database::Mode::Existing);
  checkOwner(database, path);
}

void writeDatabase(const std::string& path, const std::vector<const Inventory*>& programs,
                   const std::vector<Row>& rows) {
  const EndingSignals signals;
  Database database(path, Database::Mode::New);
  database.begin();
  std::optional<Removal> removal;
  if (checkOwner(database, path)) {
    removal.emplace(database.file());
    database.execute(schema);
  }
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
  database.execute("COMMIT");
  if (removal) removal->cancel();
}
