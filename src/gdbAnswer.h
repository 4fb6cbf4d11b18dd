// How gdb's answer to "info var" is read.
#pragma once

#include <string>
#include <string_view>

/// Examines one line (no newline) of gdb's answer to "info var". True when it declares a variable whose last name
/// component is that of `vname`; `dtype` then has the type appended.
bool typeFromDeclaration(std::string_view line, const std::string& vname, std::string& dtype);

/// Finds the first declaration of a variable in the lines (no newlines) of gdb's answer to "info var", given one by
/// one. Nothing after the line "Non-debugging symbols" counts, as these symbols have no type. A declaration that gdb
/// spreads over several lines, that of an unnamed struct, counts as one line with "{...}" in it.
class AnswerReader {
 public:
  /// `dtype` has the type of the variable `vname` appended when it is found.
  AnswerReader(const std::string& vname, std::string& dtype) : vname_(vname), dtype_(dtype) {}

  /// Examines the next line.
  void operator()(std::string_view line);
  /// Whether the declaration was among the lines so far.
  bool found() const { return found_; }

 private:
  void examine(std::string_view line);

  const std::string& vname_;
  std::string& dtype_;
  std::string opening_;  // first line of a declaration of several
  bool ended_ = false;
  bool found_ = false;
};
