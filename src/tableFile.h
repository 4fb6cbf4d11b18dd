// The file of the disk B-tree: fixed-size records addressed by number. The tree (btree.h) decides what a failure means;
// `exitOnProblem` is for those that end the program, with a message that names the file and the node.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "uniqueFd.h"

/// The owner of the file.
class TableFile {
 public:
  /// What is wrong with a record.
  struct Problem {
    std::int32_t number = 0;     ///< number of the record
    const char* text = nullptr;  ///< null: no problem
    int errorNumber = 0;         ///< errno of the failed call; 0: no call failed
    explicit operator bool() const { return text != nullptr; }
  };

  /// Opens `fileName` for reading (`mode` 'r'), or creates or truncates it for reading and writing (`mode` 'w'). In
  /// mode 'w' a regular file is locked as long as this object lives, after waiting at most 120 seconds for another
  /// program's lock. Any other mode, and a file that cannot be opened or locked, end the program through Error.
  TableFile(char mode, const char* fileName, std::size_t recordSize);

  /// Reads record `number` into `record`. A problem without an errno: the file ends before the end of the record.
  Problem read(std::int32_t number, void* record) const;

  /// Writes record `number` from `record`.
  Problem write(std::int32_t number, const void* record);

  /// Size of the file in bytes, -1 if unknown.
  std::int64_t size() const;

  /// If there is a problem, ends the program through Error with "<file>: node <number>: <text>" and the text of its
  /// errno. `failed` is then true.
  void exitOnProblem(const Problem& problem);

  /// Writes the same message to standard error without ending the program. Returns false.
  bool report(const Problem& problem) const;

  /// Whether `exitOnProblem` is ending the program: the file must then not be completed.
  bool failed() const { return failed_; }

 private:
  std::int64_t offset(std::int32_t number) const {
    return static_cast<std::int64_t>(number) * static_cast<std::int64_t>(recordSize_);
  }
  std::string message(const Problem& problem) const;

  std::string name_;
  std::size_t recordSize_;
  UniqueFd fd_;
  bool failed_ = false;
};
