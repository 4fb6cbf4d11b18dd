// Fuzzes the parsers of texts: the first character of the input selects one, which reads the rest.
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "expect.h"
#include "objRead.h"
#include "textTables.h"

namespace {

// Removes the first line from `text`, and returns it.
std::string takeLine(std::string& text) {
  const std::string line = text.substr(0, text.find('\n'));
  text.erase(0, line.size() + 1);
  return line;
}

// An answer of gdb, to a query for the name in the first line.
void readAnswer(std::string text) {
  const std::string name = takeLine(text);
  std::string type;
  AnswerReader answer(name, type);
  while (!text.empty()) answer(takeLine(text));
  EXPECT(answer.found() || type.empty());
  EXPECT(!type.ends_with(' ') && type.find('\n') == std::string::npos);
  EXPECT(remove_all_scopes(remove_all_scopes(name)) == remove_all_scopes(name));
}

// Lines of objdump.txt: every item has terminated texts and a well-formed key.
void readDeclarations(std::string text) {
  static const TMAP addresses{{"8049f40", 0}, {"8049f44", 0}, {"abcd", 0}, {std::string(50, 'e'), 0}};
  while (!text.empty()) {
    const std::string line = takeLine(text);
    ItemType item;
    if (!itemFromDeclaration(line, addresses, item)) continue;
    EXPECT(line.ends_with("*/;") && item.isValid() && std::strlen(item.KeyField) == KeyFieldMax);
    const std::string key(item.KeyField, std::strcspn(item.KeyField, " "));
    EXPECT(addresses.contains(key) && line.find(key) != std::string::npos);
    const std::string name = item.DataField.getVarName();
    EXPECT(name.find_first_of(" \t[") == std::string::npos && !name.starts_with('*'));
  }
}

// A line of objdump.1, compared with a simpler parser.
void readRecord(const std::string& text) {
  std::string line = text.substr(0, RecordSize - 1).c_str();
  std::vector<std::string> words;
  split(line, " ", words);
  sobjdump1 record{};
  EXPECT(populate_sobjdump1(&record, line.data()) == (words.size() >= 3 ? 0 : -1));
  if (words.size() < 3) return;
  EXPECT(words[0] == record.Address && words[2] == record.VariableName);
  EXPECT(words[1] != "<NULL>" || record.DataSize == -1);
}

// The lookup of the type in the first line, in a sizes.tbl of the other lines. A size comes from a line with the type
// in it, and a second lookup gives the same.
void lookUpSize(std::string text) {
  const std::string type = takeLine(text);
  text += '\n';
  FILE* file = fmemopen(text.data(), text.size(), "r");
  int found[2] = {77, 78};
  char buffer[RecordSize];
  for (int& answer : found) get_Dsize(file, &answer, buffer, type.c_str());
  std::fclose(file);
  EXPECT(found[0] == found[1] && found[0] >= -1);
  const std::string bare = type.substr(0, type.find_first_of("* \t\v\f\r"));
  EXPECT(found[0] == -1 || bare == "static" || (type + text).find('\0') != std::string::npos ||
         text.find(bare) != std::string::npos);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
  if (data[0] == 'a') readAnswer(text);
  if (data[0] == 'd') readDeclarations(text);
  if (data[0] == 'r') readRecord(text);
  if (data[0] == 's') lookUpSize(text);
  return 0;
}
