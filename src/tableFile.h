// The file under the disk B-tree: fixed-size records addressed by number. The tree decides what a failure means; for
// those that end the program there is `exitOn`, whose message names the file and the node.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "uniqueFd.h"

class TableFile {
 public:
  /// What is wrong with a record.
  struct Problem {
    std::int32_t number = 0;     ///< of the record
    const char* text = nullptr;  ///< null: nothing is wrong
    int errorNumber = 0;         ///< errno of the call that failed; 0: none did
    explicit operator bool() const { return text != nullptr; }
  };

  /// Opens `fileName` for reading (`mode` 'r'), or for reading and writing, emptied or created (`mode` 'w'). In mode
  /// 'w' a regular file is locked as long as this object lives; while another program has it locked, it waits, at most
  /// 120 seconds. Any other mode, and a file that cannot be opened or locked, end the program through Error.
  TableFile(char mode, const char* fileName, std::size_t recordSize);

  /// Reads record `number` into `record`. A problem without an errno: the file does not hold it whole.
  Problem read(std::int32_t number, void* record) const;

  /// Writes record `number` from `record`.
  Problem write(std::int32_t number, const void* record);

  /// Size of the file in bytes, -1 when it cannot be told.
  std::int64_t size() const;

  /// If there is a problem, ends the program through Error with "<file>: node <number>: <text>" and the reason of its
  /// errno. From then on `failed` is true.
  void exitOn(const Problem& problem);

  /// Writes the same message to standard error without ending the program. Returns false.
  bool report(const Problem& problem) const;

  /// Whether `exitOn` has ended the program: the file is then not to be completed.
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
