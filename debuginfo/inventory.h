// The variables that a program has in memory, as its debugging information describes them. Everything that the front
// end shows is a view of an Inventory. The reader has one other public header, packer.h.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Who can refer to a variable by its name.
enum class Linkage {
  External,  ///< every unit of the program
  Internal,  ///< its own unit
  Function   ///< the function in which it is a static
};

/// One variable. Its texts belong to the Inventory that it is part of. An empty text is not known.
struct Variable {
  std::string_view name;  ///< with all scopes, as gdb spells them; never empty
  /// Length of that part of `name` which are namespaces, without "::" behind it; 0: it is in none. Empty: not known.
  std::optional<std::uint32_t> namespaceLength;
  std::string_view type;              ///< as C or C++ declares it: "const double [2][3]", "int (*)(char)"
  std::optional<std::uint64_t> size;  ///< bytes
  std::string_view section;           ///< name of the section that holds it: ".bss"
  std::optional<bool> writable;       ///< whether the program may write to it when it runs
  std::optional<bool> threadLocal;    ///< whether each thread has one
  std::optional<Linkage> linkage;
  std::string_view file;                 ///< of the definition, relative to `Inventory::directory` if within it
  int line = 0;                          ///< of the definition, from 1; 0 when not known
  std::optional<std::uint64_t> address;  ///< in the executable; of a thread-local variable, the offset in the block
  /// Bytes of the named type behind all pointers, arrays, functions and references of the type. Not known for vectors,
  /// unnamed types, and types that the variable's unit only declares.
  std::optional<std::uint64_t> namedSize;
  bool namedIncomplete = false;  ///< that named type is one which the variable's unit only declares
  bool endless = false;          ///< `type` is not known because there are more types in it than a text could hold
};

/// A variable or declaration outside functions that a debugger may find by its name.
struct NamedType {
  std::string_view name;  ///< with all scopes
  std::string_view type;  ///< empty: not known
};

/// A section that the program has in memory.
struct Section {
  std::string name;
  std::uint64_t size = 0;  ///< bytes
};

/// Texts that live as long as this object and do not move.
class TextPool {
 public:
  TextPool();
  ~TextPool();
  TextPool(const TextPool&) = delete;
  TextPool& operator=(const TextPool&) = delete;
  TextPool(TextPool&&) noexcept;
  TextPool& operator=(TextPool&&) noexcept;

  /// The pool's copy of `text`; equal ones are held once.
  std::string_view intern(std::string_view text);
  /// A copy of `text` that is not compared with others: for texts that differ mostly.
  std::string_view keep(std::string_view text);

 private:
  struct Storage;
  std::unique_ptr<Storage> storage_;
};

/// The variables of one executable.
struct Inventory {
  std::string executable;  ///< as it was named when it was read
  std::string buildId;     ///< hexadecimal; empty: none
  std::string directory;   ///< in which its units were compiled; empty: none in common
  /// When the program's file was last modified, in seconds since 1970; not known of a result that is read again.
  std::optional<std::int64_t> modified;
  std::vector<Section> sections;      ///< in the order of the file
  std::vector<Variable> variables;    ///< by address, thread-local ones last
  std::vector<NamedType> known;       ///< if asked for: all that a debugger may find by a name, with repetitions
  std::vector<std::string> warnings;  ///< what is missing and why, one sentence each, without the executable's name
  TextPool texts;
};

struct ReadOptions {
  bool artificial = false;  ///< also variables that the compiler made up, such as __func__
  bool known = false;       ///< also Inventory::known
  unsigned jobs = 1;        ///< processes that may share the reading of one program
  /// So much debugging information is worth a process of its own.
  std::uint64_t bytesOfProcess = std::uint64_t{4} << 20;
};

/// Reads the variables of the executable or shared object `path`. Throws UserError when it cannot be read or has no
/// debugging information; what can be read in part gives warnings.
Inventory readInventory(const std::string& path, const ReadOptions& options);

/// The declaration of `name` with a type as Variable holds it, written as gdb lists variables: "const char name[3]",
/// "char *name", "int (*)(char) name".
std::string declare(std::string_view type, std::string_view name);

/// Removes every scope from the text of a name or type, also within template arguments: "a::B<c::D>" becomes "B<D>".
std::string withoutScopes(std::string_view name);

/// Takes the text of a name apart at the "::" that stand between its scopes, outermost first: those within template
/// arguments and brackets are none, and the marks in names of operators open no brackets.
std::vector<std::string_view> scopesOf(std::string_view name);
