#include "debuginfo/sourceFiles.h"

#include <dwarf.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <utility>

// Reads the header of a line number table (DWARF 5, section 6.2.4; version 4 and earlier have a different format).
class SourceFiles::Header {
 public:
  Header(const DebugSections& sections, std::uint64_t offset)
      : sections_(sections), cursor_(sections.lines.begin(), sections.lines.end(), sections.lines.bigEndian()) {
    cursor_.skip(offset);
  }

  List read() {
    List list;
    std::uint64_t length = cursor_.fixed(4);
    if (length == 0xffffffff) {
      length = cursor_.fixed(8);
      sizes_.offset = 8;
    }
    if (length > cursor_.left()) return list;
    cursor_ = {cursor_.at(), cursor_.at() + length, sections_.lines.bigEndian()};
    sizes_.version = static_cast<unsigned>(cursor_.fixed(2));
    if (sizes_.version >= 5) cursor_.skip(2);
    cursor_.skip(sizes_.offset);
    cursor_.skip(sizes_.version >= 4 ? 5 : 4);
    const std::uint8_t operations = cursor_.byte();
    cursor_.skip(operations > 0 ? operations - 1U : 0);
    if (sizes_.version >= 5)
      readLists(list);
    else
      readOldLists(list);
    if (cursor_.failed()) list.files.clear();
    return list;
  }

 private:
  void readOldLists(List& list) {
    list.directories.push_back(nullptr);  // the compilation directory
    list.files.push_back({});
    for (const char* name = cursor_.text(); *name != '\0'; name = cursor_.text()) list.directories.push_back(name);
    for (const char* name = cursor_.text(); *name != '\0'; name = cursor_.text()) {
      list.files.push_back({name, cursor_.leb(), {}});
      cursor_.leb();
      cursor_.leb();
    }
  }

  void readLists(List& list) {
    readList([&list](const File& entry) { list.directories.push_back(entry.name); });
    readList([&list](const File& entry) { list.files.push_back(entry); });
  }

  template <typename Take>
  void readList(Take take) {
    std::vector<std::pair<std::uint64_t, unsigned>> format(cursor_.byte());
    for (auto& [content, form] : format) {
      content = cursor_.leb();
      form = static_cast<unsigned>(cursor_.leb());
    }
    const std::uint64_t count = cursor_.leb();
    // The loop ends even if the count is damaged, because each entry takes at least a byte.
    for (std::uint64_t i = 0; i < count && !cursor_.failed() && !format.empty(); ++i) {
      File entry;
      const unsigned char* begin = cursor_.at();
      for (const auto& [content, form] : format) readField(content, form, entry);
      if (cursor_.at() == begin) return;
      take(entry);
    }
  }

  void readField(std::uint64_t content, unsigned form, File& entry) {
    if (content == DW_LNCT_path) {
      entry.name = readText(form);
    } else if (content == DW_LNCT_directory_index) {
      const int size = formSize(form, sizes_);
      entry.directory = size >= 0 ? cursor_.fixed(static_cast<std::size_t>(std::min(size, 8))) : cursor_.leb();
    } else {
      skipForm(form, sizes_, cursor_);
    }
  }

  const char* readText(unsigned form) {
    if (form == DW_FORM_string) return cursor_.text();
    if (form != DW_FORM_line_strp && form != DW_FORM_strp) {
      skipForm(form, sizes_, cursor_);
      return "";
    }
    const SectionBytes& section = form == DW_FORM_strp ? sections_.texts : sections_.lineTexts;
    ByteCursor text(section.begin(), section.end(), false);
    text.skip(cursor_.fixed(sizes_.offset));
    return text.text();
  }

  const DebugSections& sections_;
  ByteCursor cursor_;
  FormSizes sizes_{.version = 0, .address = 8, .offset = 4};
};

SourceFiles::List& SourceFiles::listOf(const Die& unit) {
  constexpr std::size_t most = 64;
  const auto known = lists_.find(unit.id());
  if (known != lists_.end()) return known->second;
  if (lists_.size() >= most) lists_.clear();
  List list;
  if (const auto offset = unit.number(DW_AT_stmt_list)) list = Header(layouts_.sections(unit.raw().cu), *offset).read();
  list.compiledIn = unit.text(DW_AT_comp_dir);
  return lists_.emplace(unit.id(), std::move(list)).first->second;
}

std::string_view SourceFiles::name(const Die& unit, std::uint64_t number, const char* directory) {
  List& list = listOf(unit);
  if (number >= list.files.size()) return {};
  File& file = list.files[number];
  if (!file.path.empty() || *file.name == '\0') return file.path;
  const char* compiledIn = list.compiledIn != nullptr ? list.compiledIn : directory;
  const char* within = file.directory < list.directories.size() ? list.directories[file.directory] : nullptr;
  // Appending an absolute path replaces the path before it.
  std::filesystem::path path(compiledIn != nullptr ? compiledIn : "");
  // Directory 0 is the compilation directory itself, so if it is relative it must not be appended to that.
  const bool isOther = file.directory > 0 || compiledIn == nullptr;
  if (within != nullptr && (isOther || *within == '/')) path /= within;
  path /= file.name;
  return file.path = texts_.intern(path.lexically_normal().native());
}
