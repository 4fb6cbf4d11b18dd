// The variables with a fixed address that a program's debugging information describes.
#pragma once

#include <elfutils/libdw.h>

#include <cstdint>
#include <string>
#include <vector>

#include "debugFile.h"
#include "typeNames.h"

struct GlobalVariable {
  std::uint64_t address = 0;  ///< in the executable
  std::uint64_t size = 0;     ///< bytes; 0 when unknown
  std::string name;           ///< own name, without scopes
  Scopes::Id scope = Scopes::global;
  bool internal = false;  ///< known in its unit or function alone
  bool cxx = false;       ///< from a unit in C++ (or another language that names types without their kind)
  const char* linkageName =
      nullptr;       ///< name of the symbol as the debugging information tells it; null when it does not
  Dwarf_Die type{};  ///< addr is null when there is none
  std::string file;  ///< of the definition, as the debugging information names it; empty when unknown
  int line = 0;      ///< of the definition, from 1; 0 when unknown
};

struct Variables {
  Scopes scopes;
  std::vector<GlobalVariable> list;       ///< by address; at one address there are only variables of the same type
  std::vector<std::string> missingUnits;  ///< .dwo files that could not be found
};

/// What is to be read of each variable: for tables, its place need not be looked up; for places, its name alone.
enum class Wanted { Types, Places };

/// Reads the variables of `file`: globals, statics of files and functions, static members, members of namespaces,
/// inline variables, instances of templates, once each. Thread-local and optimised-away variables and declarations are
/// left out.
Variables readVariables(const DebugFile& file, Wanted wanted);
