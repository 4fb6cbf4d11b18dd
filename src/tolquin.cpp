// The main loop.
#include "tolquin.h"

#include <cerrno>
#include <cstring>
#include <unordered_map>

#include "a2lControl.h"
#include "childProcess.h"
#include "objRead.h"

namespace {

// Sizes of types, remembered from earlier lookups, so that sizes.tbl is not read anew for every variable.
class SizeMemory {
 public:
  explicit SizeMemory(FILE* sizes) : sizes_(sizes) {}

  int lookUp(const std::string& dataType) {
    // Traces are written by each lookup.
    static const bool traced = shoulddebug() != 0;
    if (const auto known = known_.find(dataType); known != known_.end() && !traced) return known->second;
    int size = -1;
    char buffer[RecordSize] = "";
    get_Dsize(sizes_, &size, buffer, dataType.c_str());
    if (known_.size() >= mostKnown) known_.clear();
    known_[dataType] = size;
    return size;
  }

 private:
  static constexpr std::size_t mostKnown = 4096;  // bounds the memory of a run
  FILE* sizes_;
  std::unordered_map<std::string, int> known_;
};

// A line of objdump.1 on its way through the loop.
struct Variable {
  char line[RecordSize];
  sobjdump1 record;
  SourceLocation location;
  bool good = false;

  // Reads and parses the next line. False at the end of the file.
  bool read(FILE* objdump1) {
    line[0] = '\0';
    if (get_rec(objdump1, line) != 0) return false;
    char words[RecordSize];
    std::memcpy(words, line, sizeof words);
    good = populate_sobjdump1(&record, words) == 0;
    if (good) str_trim(record.VariableName);
    return true;
  }
};

// Types, sizes and writes the variables whose place is known.
class RowWriter {
 public:
  RowWriter(FILE* sizes, FILE* table) : sizes_(sizes), table_(table) {}

  void finish(Variable& variable) {
    char* address = variable.record.Address;
    if (address[0] == '0') address[0] = ' ';
    sGlobalVarDef_tbl row;
    if (!getVarInfoFromAddr(str_trim(address), variable.record.VariableName, row.DataType)) return;
    row.DRefDataSize = sizes_.lookUp(row.DataType);
    row.GlobalVarKey = ++writecount_;
    row.VariableName = variable.record.VariableName;
    row.DataSize = variable.record.DataSize;
    row.SourceFile = variable.location.file;
    row.LineNbr = variable.location.line;
    const std::string text = formatGlobalVarDef(row);
    if (std::fwrite(text.data(), 1, text.size(), table_) < text.size() && writeError_ == 0) writeError_ = errno;
  }

  // errno of the first row that could not be written, or 0.
  int writeError() const { return writeError_; }

 private:
  SizeMemory sizes_;
  FILE* table_;
  int writeError_ = 0;
  int writecount_ = 0;
};

// One pass over objdump.1. While addr2line works on the request for a line, the line before it is looked up and
// written; everything that can be seen of that, happens in the order of the lines. While it works on the first, the
// index is built. The first line is finished before the second is asked for. Returns 0, or the errno of a read error
// that ended the list.
int processRecords(FILE* objdump1, A2LControl& session, RowWriter& rows) {
  const SigchldBlocked untilWaits;  // which let it in
  Variable buffers[2];
  Variable* current = &buffers[0];
  Variable* waiting = nullptr;
  for (bool first = true; current->read(objdump1); first = false) {
    if (current->good) session.requestLocation(current->record.Address);
    if (waiting != nullptr) rows.finish(*waiting);
    dprintf("input line <%s>\n", current->line);
    if (!current->good) err_exit(735, "Error parsing objdump.1 record");
    if (first) prepareIndex();
    current->location = session.awaitLocation();
    if (first) rows.finish(*current);
    waiting = first ? nullptr : current;
    current = current == &buffers[0] ? &buffers[1] : &buffers[0];
  }
  const int readError = std::ferror(objdump1) != 0 ? errno : 0;
  if (waiting != nullptr) rows.finish(*waiting);
  return readError;
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
  // A list that broke off must not pass for a short one, nor a row be lost because the last block found room again.
  if (readError != 0) exitUnclosed(151, readError);
  if (rows.writeError() != 0) exitUnclosed(156, rows.writeError());
  return 0;
}
