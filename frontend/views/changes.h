// The changes between two builds, for people, programs, and the pages of a code host.
#pragma once

#include <string>
#include <vector>

#include "frontend/comparison.h"
#include "frontend/output.h"
#include "frontend/views/table.h"

/// A comparison and what is shown of it.
struct ChangeReport {
  std::vector<const Inventory*> before;
  std::vector<const Inventory*> after;
  Comparison comparison;        ///< its changes are those to be shown
  std::size_t all = 0;          ///< how many there were before some were left out for their number
  bool hasMovesHidden = false;  ///< whether those that only moved are left out
};

/// Writes a table for people, and below it how many changes of each class there are and how many bytes all variables
/// take. All of these throw UserError when standard output cannot be written.
void writeChangeTable(const ChangeReport& report, const TableStyle& style, Output& output);

/// Writes a document, as docs/schema.json describes it.
void writeChangeJson(const ChangeReport& report, Output& output);

/// Writes a heading and a table in GitHub Flavored Markdown: at most `rows` rows, and not more than a comment on GitHub
/// may hold. Nothing in a name has a meaning in it.
void writeChangeMarkdown(const ChangeReport& report, std::size_t rows, Output& output);

/// Writes a warning for each variable that was added or has grown, as a workflow of GitHub Actions prints it. Files
/// within the directory `workspace` are named from there; empty: they are named as the program has them.
void writeAnnotations(const ChangeReport& report, const std::string& workspace, Output& output);

/// What is shown of a change; its other texts belong to the programs.
struct ShownChange {
  const Change* change;
  std::string delta;
  std::string section;  ///< from which and to which it moved; empty: it did not
  std::string type;     ///< which it was and is; empty: always the same
};

/// What is shown of `change`.
ShownChange shown(const Change& change);

/// The columns of tables of changes of `report`.
std::vector<Field<ShownChange>> changeFields(const ChangeReport& report);

/// `delta` in decimal digits, with its sign and a comma before every three: "+1,024", "-3", "0".
std::string textOf(const Delta& delta);

/// "3 added, 1 removed, 2 grown": how many changes of each class there are.
std::string countsOf(const ChangeReport& report);

/// "16 → 48 bytes (+32), writable or thread-local 8 → 8 (0)": what all variables take.
std::string bytesOf(const Comparison& comparison);

/// What bytesOf leaves out, and how many moves are hidden: lines, each with `end`; empty: neither.
std::string notesOf(const ChangeReport& report, std::string_view end);
