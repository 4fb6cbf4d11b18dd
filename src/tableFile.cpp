#include "tableFile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "io.h"

TableFile::TableFile(char mode, const char* fileName, std::size_t recordSize)
    : name_(fileName), recordSize_(recordSize) {
  if (mode != 'r' && mode != 'w') Error("Incorrect mode given to BTTableClass constructor");
  fd_ = openFile(fileName, mode == 'r' ? O_RDONLY : O_RDWR | O_CREAT | O_TRUNC);
  if (!fd_) Error("File cannot be opened");
}

bool TableFile::tryRead(std::int32_t number, void* record) const {
  return readAt(fd_.get(), record, recordSize_, offset(number));
}

bool TableFile::tryWrite(std::int32_t number, const void* record) {
  return writeAt(fd_.get(), record, recordSize_, offset(number));
}

std::int64_t TableFile::size() const {
  struct stat status {};
  return fstat(fd_.get(), &status) == 0 ? status.st_size : -1;
}

void TableFile::fail(std::int32_t number, const char* problem, int errorNumber) {
  failed_ = true;
  Error(message(number, problem, errorNumber).c_str());
}

void TableFile::report(std::int32_t number, const char* problem, int errorNumber) const {
  std::fprintf(stderr, "%s\n", message(number, problem, errorNumber).c_str());
}

std::string TableFile::message(std::int32_t number, const char* problem, int errorNumber) const {
  std::string text = name_ + ": node " + std::to_string(number) + ": " + problem;
  if (errorNumber != 0) text += std::string(": ") + std::strerror(errorNumber);
  return text;
}
