#include "frontend/outputFiles.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "src/io.h"
#include "src/userError.h"

namespace {

std::string temporaryPath(const std::string& path) { return path + ".new" + std::to_string(getpid()); }

[[noreturn]] void fail(const std::string& path, const char* what) {
  throw UserError(path + ": " + what + ": " + std::strerror(errno));
}

}  // namespace

void makeDirectory(const std::string& path) {
  std::error_code error;
  std::filesystem::create_directories(path, error);
  if (error) throw UserError(path + ": cannot create directory: " + error.message());
}

OutputFiles::~OutputFiles() {
  for (const std::string& path : paths_) unlink(temporaryPath(path).c_str());
}

void OutputFiles::write(const std::string& path, std::string_view content) {
  std::error_code error;
  const auto status = std::filesystem::status(path, error);
  if (exists(status) && !is_regular_file(status)) throw UserError(path + ": is not a regular file");
  UniqueFd file = openFile(temporaryPath(path).c_str(), O_WRONLY | O_CREAT | O_TRUNC);
  if (!file) fail(path, "cannot be written");
  paths_.push_back(path);
  const bool written = writeAt(file.get(), content.data(), content.size(), 0);
  // Some file systems report a full disk only when the file is closed.
  if (!written || !file.close()) fail(path, "cannot be written");
}

void OutputFiles::commit() {
  for (const std::string& path : paths_) {
    if (std::rename(temporaryPath(path).c_str(), path.c_str()) != 0) fail(path, "cannot be renamed into place");
  }
  paths_.clear();
}
