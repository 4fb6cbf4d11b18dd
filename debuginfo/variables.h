// The variables with a fixed address that a program's debugging information describes.
#pragma once

#include <elfutils/libdw.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "debugFile.h"
#include "dwarfEntries.h"
#include "typeNames.h"

struct GlobalVariable {
  std::uint64_t address = 0;          ///< in the executable
  std::optional<std::uint64_t> size;  ///< bytes; empty when unknown
  std::string name;                   ///< own name, without scopes
  Scopes::Id scope = Scopes::global;
  bool internal = false;  ///< known in its unit or function alone
  bool inFunction = false;
  bool cxx = false;  ///< from a unit in C++ (or another language that names types without their kind)
  const char* linkageName =
      nullptr;         ///< name of the symbol as the debugging information tells it; null when it does not
  Dwarf_Die type{};    ///< addr is null when there is none that can be read
  bool typed = false;  ///< has a type, if only one that cannot be read
  std::string file;    ///< of the definition, as the debugging information names it; empty when unknown
  int line = 0;        ///< of the definition, from 1; 0 when unknown
};

/// A variable outside functions that the debugging information knows, with an address or without.
struct KnownVariable {
  Dwarf_Die die;
  Scopes::Id scope;
  bool cxx;
};

struct Variables {
  Scopes scopes;
  std::vector<GlobalVariable> list;  ///< by address, one at each
  std::vector<KnownVariable> known;  ///< what a debugger would list, in no order, with repetitions
  std::size_t sharing = 0;           ///< variables left out because they share the address of another
  MissingParts missing;
  std::string directory;
};

/// What is to be read of each variable: for tables, its place need not be looked up; for places, its name alone.
enum class Wanted { Types, Places };

/// Reads the variables of `file`: globals, statics of files and functions, static members, members of namespaces,
/// inline variables, instances of templates, once each. Thread-local and optimised-away variables and declarations are
/// left out.
Variables readVariables(const DebugFile& file, Wanted wanted);
