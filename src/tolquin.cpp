#include "tolquin.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <string>
#include <unordered_map>

#include "a2lControl.h"
#include "objRead.h"

namespace {

// Writes the rows of tGlobalVarDef.tbl, with the sizes of the types from sizes.tbl.
class RowWriter {
 public:
  RowWriter(FILE* sizes, FILE* table) : sizes_(sizes), table_(table) {}

  void write(const sobjdump1& record, const std::string& dataType, const SourceLocation& location) {
    row_.GlobalVarKey += 1;
    setText(row_.VariableName, record.VariableName);
    setText(row_.DataType, dataType);
    row_.DataSize = record.DataSize;
    row_.DRefDataSize = sizeOf(row_.DataType);
    setText(row_.SourceFile, location.file);
    row_.LineNbr = location.line;
    const std::string line = formatGlobalVarDef(row_);
    if (std::fwrite(line.data(), 1, line.size(), table_) < line.size() && writeError_ == 0) writeError_ = errno;
  }

  // errno of the first failed write, or 0.
  int writeError() const { return writeError_; }

 private:
  // Cached, so that sizes.tbl is not read for every variable.
  int sizeOf(const char* dataType) {
    constexpr std::size_t maxCached = 4096;         // to bound the memory
    static const bool traced = shoulddebug() != 0;  // each lookup then writes its trace lines
    if (const auto known = sizeCache_.find(dataType); known != sizeCache_.end() && !traced) return known->second;
    if (sizeCache_.size() >= maxCached) sizeCache_.clear();
    char buffer[RecordSize];
    int& size = sizeCache_[dataType];
    get_Dsize(sizes_, &size, buffer, dataType);
    return size;
  }

  FILE* sizes_;
  FILE* table_;
  sGlobalVarDef_tbl row_;
  std::unordered_map<std::string, int> sizeCache_;
  int writeError_ = 0;
};

// Processes all records of objdump.1. Returns 0, or the errno of a read error.
int processRecords(FILE* objdump1, A2LControl& session, RowWriter& rows) {
  char objdump1_readbuf[RecordSize] = "";
  sobjdump1 record;
  while (get_rec(objdump1, objdump1_readbuf) == 0) {
    dprintf("input line <%s>\n", objdump1_readbuf);
    if (populate_sobjdump1(&record, objdump1_readbuf) != 0) err_exit(735, "Error parsing objdump.1 record");
    str_trim(record.VariableName);
    const SourceLocation location = session.locate(record.Address);
    // Addresses in the index lack their first '0'.
    if (record.Address[0] == '0') record.Address[0] = ' ';
    std::string dataType;
    if (getVarInfoFromAddr(str_trim(record.Address), record.VariableName, dataType))
      rows.write(record, dataType, location);
  }
  return std::ferror(objdump1) != 0 ? errno : 0;
}

}  // namespace

int process_objdump1(const char* dirname, const char* ExeName) {
  FILE* FDobjdump = nullptr;
  FILE* FDobjdump1 = nullptr;
  FILE* FDGlobalVarDef_tbl = nullptr;
  FILE* FDsizes_tbl = nullptr;
  open_files(dirname, &FDobjdump, &FDobjdump1, &FDGlobalVarDef_tbl, &FDsizes_tbl);
  A2LControl session(ExeName);
  session.startA2L();
  RowWriter rows(FDsizes_tbl, FDGlobalVarDef_tbl);
  const int readError = processRecords(FDobjdump1, session, rows);
  close_files(FDobjdump, FDobjdump1, FDGlobalVarDef_tbl);
  // An incomplete table must not be mistaken for a complete one, even if closing the files succeeds.
  if (readError != 0) exitOnTableError(151, readError);
  if (rows.writeError() != 0) exitOnTableError(156, rows.writeError());
  return 0;
}
