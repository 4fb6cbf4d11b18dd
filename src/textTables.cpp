#include "textTables.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>

#include "diagnostics.h"
#include "suiteFiles.h"

namespace {

FILE* openTable(const std::string& path, const char* mode, int errorNumber) {
  FILE* file = std::fopen(path.c_str(), mode);
  if (file == nullptr) {
    const std::string reason = "Unable to open input file: " + path + " " + std::to_string(errno);
    err_exit(errorNumber, reason.c_str());
  }
  return file;
}

void closeTable(FILE* file, int errorNumber) {
  if (std::fclose(file) == EOF) exitOnTableError(errorNumber, errno);
}

// Whether a line of sizes.tbl answers a lookup of `sought`. Sets `sizeText` to the text after the type.
bool matchesType(const char* line, std::string_view sought, const char*& sizeText) {
  const char* tab = std::strchr(line, '\t');
  if (tab == nullptr || line[std::strspn(line, "\t")] == '\0') return false;
  sizeText = tab + 1;
  return answersSizeLookup({line, static_cast<std::size_t>(tab - line)}, sought);
}

}  // namespace

void exitOnTableError(int ErrNbr, int error) {
  err_exit(ErrNbr, ("Unable to close file " + std::to_string(error)).c_str());
}

int open_files(const char* dirname, FILE** FDobjdump, FILE** FDobjdump1, FILE** FDGlobalVarDef_tbl,
               FILE** FDsizes_tbl) {
  const std::string prefix = dirname;
  *FDobjdump = openTable(prefix + suiteFiles::declarations, "re", 114);
  *FDobjdump1 = openTable(prefix + suiteFiles::variables, "re", 120);
  *FDGlobalVarDef_tbl = openTable(prefix + suiteFiles::result, "we", 126);
  *FDsizes_tbl = openTable(prefix + suiteFiles::typeSizes, "re", 132);
  return 0;
}

int close_files(FILE* FDobjdump, FILE* FDobjdump1, FILE* FDGlobalVarDef_tbl) {
  closeTable(FDobjdump, 146);
  closeTable(FDobjdump1, 151);
  closeTable(FDGlobalVarDef_tbl, 156);
  return 0;
}

int populate_sobjdump1(sobjdump1* structure, char* objdump1_readbuf) {
  char* rest = nullptr;
  const char* address = strtok_r(objdump1_readbuf, " ", &rest);
  if (address == nullptr) return -1;
  setText(structure->Address, address);
  const char* size = strtok_r(nullptr, " ", &rest);
  if (size == nullptr) return -1;
  const bool given = std::strcmp(size, "<NULL>") != 0;
  hex2dec(&structure->DataSize, given ? (std::string("0x") + size).c_str() : size);
  const char* name = strtok_r(nullptr, " ", &rest);
  if (name == nullptr) return -1;
  setText(structure->VariableName, name);
  return 0;
}

int hex2dec(int* cvtint, const char* str) {
  if (std::strcmp(str, "<NULL>") == 0) {
    *cvtint = -1;
    return 0;
  }
  errno = 0;
  *cvtint = saturatingInt(str, 16);
  return errno != 0 ? -1 : 0;
}

void get_Dsize(FILE* Size_Tbl, int* Dsize, char* readbuffer, const char* DataType) {
  *Dsize = -1;
  const std::string DType(sizeLookupName(DataType));
  std::rewind(Size_Tbl);
  dprintf("looking for size of(%s)\n", DType.c_str());
  constexpr std::string_view storageClass = "static ";
  std::string_view sought = DType;
  if (sought.starts_with(storageClass)) sought.remove_prefix(storageClass.size());
  while (get_rec(Size_Tbl, readbuffer) == 0) {
    const char* sizeText = nullptr;
    if (!matchesType(readbuffer, sought, sizeText)) continue;
    *Dsize = saturatingInt(sizeText, 10);
    dprintf("found size of(%.*s) = %u\n", static_cast<int>(sought.size()), sought.data(),
            static_cast<unsigned>(*Dsize));
    break;
  }
  *Dsize = std::max(*Dsize, -1);
}

std::string formatGlobalVarDef(const sGlobalVarDef_tbl& record) {
  std::string row;
  row.reserve(256);
  const auto number = [&row](int value) { row.append(std::to_string(value)).append("\t"); };
  const auto text = [&row](std::string_view value) {
    const std::string_view column = trimmed(value);
    row.append(column.empty() ? "<NULL>" : column).append("\t");
  };
  number(record.GlobalVarKey);
  text(record.VariableName);
  text(record.DataType);
  number(record.DataSize);
  number(record.DRefDataSize);
  text(record.TypedefType);
  text(record.StructType);
  text(record.SourceFile);
  number(record.LineNbr);
  number(record.LineCount);
  row.back() = '\n';
  return row;
}
