// The output formats of `diff`.
#pragma once

#include <string>
#include <vector>

#include "frontend/comparison.h"
#include "frontend/output.h"
#include "frontend/views/table.h"

/// A comparison, and which of its changes are shown.
struct ChangeReport {
  std::vector<const Inventory*> before;
  std::vector<const Inventory*> after;
  Comparison comparison;        ///< `changes` has only those to show
  std::size_t all = 0;          ///< the number of changes before `-n` was applied
  bool hasMovesHidden = false;  ///< whether variables that only moved are omitted
};

/// Writes a table, followed by the number of changes of each class and the bytes of all variables. This and the other
/// functions throw UserError when writing to standard output fails.
void writeChangeTable(const ChangeReport& report, const TableStyle& style, Output& output);

/// Writes a JSON document as described in docs/schema.json.
void writeChangeJson(const ChangeReport& report, Output& output);

/// Writes a heading and a table in GitHub Flavored Markdown: at most `rows` rows, and no more than fits in a GitHub
/// comment. Names are escaped so that they cannot act as markup.
void writeChangeMarkdown(const ChangeReport& report, std::size_t rows, Output& output);

/// Writes a GitHub Actions warning for each variable that was added or has grown. The names of files within the
/// directory `workspace` are relative to it; if it is empty, they are those in the program.
void writeAnnotations(const ChangeReport& report, const std::string& workspace, Output& output);

/// The texts made to show a change; other texts belong to the programs.
struct ShownChange {
  const Change* change;
  std::string delta;
  std::string section;  ///< "old → new"; empty if it did not change
  std::string type;     ///< "old → new"; empty if it did not change
};

/// The texts to show for `change`.
ShownChange shown(const Change& change);

/// The columns of the table of changes in `report`.
std::vector<Field<ShownChange>> changeFields(const ChangeReport& report);

/// `delta` in decimal with its sign and thousands separators: "+1,024", "-3", "0".
std::string textOf(const Delta& delta);

/// The number of changes of each class: "3 added, 1 removed, 2 grown".
std::string countsOf(const ChangeReport& report);

/// The bytes of all variables: "16 → 48 bytes (+32), writable or thread-local 8 → 8 (0)".
std::string bytesOf(const Comparison& comparison);

/// Lines about variables that bytesOf does not count and about hidden moves, each followed by `end`; may be empty.
std::string notesOf(const ChangeReport& report, std::string_view end);
