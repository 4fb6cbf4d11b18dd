// Parses gdb's answer to "info var". Used by the type query (objRead).
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// Parses one line (no newline) of gdb's answer to "info var". True when it declares a variable with the same last name
/// component as `vname`; the type is then appended to `dtype`.
bool typeFromDeclaration(std::string_view line, const std::string& vname, std::string& dtype);

/// Finds the first declaration of a variable in the lines (no newlines) of gdb's answer to "info var", passed one by
/// one. Ignores everything after the line "Non-debugging symbols", as these symbols have no type. A declaration over
/// several lines, which gdb prints for an unnamed struct, is read as one line with "{...}" in it.
class AnswerReader {
 public:
  /// The type of the variable `vname` is appended to `dtype` when it is found; both must outlive this object.
  AnswerReader(const std::string& vname, std::string& dtype) : vname_(vname), dtype_(dtype) {}

  /// Reads the next line.
  void operator()(std::string_view line);
  /// Whether the declaration was among the lines so far.
  bool found() const { return found_; }

 private:
  void examine(std::string_view line);

  const std::string& vname_;
  std::string& dtype_;
  std::string firstLine_;     // of a declaration over several lines
  std::ptrdiff_t depth_ = 0;  // of its braces
  bool ended_ = false;
  bool found_ = false;
};
