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

[[noreturn]] void fail(const std::string& path, const char* what) {
  throw UserError(path + ": " + what + ": " + std::strerror(errno));
}

}  // namespace

std::string regularFile(const std::string& path) {
  std::error_code error;
  if (!exists(std::filesystem::symlink_status(path, error))) return path;
  if (!is_regular_file(std::filesystem::status(path, error))) throw UserError(path + ": is not a regular file");
  return std::filesystem::canonical(path, error);
}

void makeDirectory(const std::string& path) {
  std::error_code error;
  std::filesystem::create_directories(path, error);
  if (error) throw UserError(path + ": cannot create directory: " + error.message());
}

OutputFiles::~OutputFiles() {
  for (const Written& file : files_) unlink(file.temporary.c_str());
}

void OutputFiles::write(const std::string& path, std::string_view content) {
  const std::string target = regularFile(path);
  const std::string name = ".tolquin-" + std::to_string(getpid()) + "-" + std::to_string(files_.size());
  const std::string temporary = std::filesystem::path(target).replace_filename(name);
  unlink(temporary.c_str());
  std::error_code error;
  const auto before = std::filesystem::status(target, error);
  const mode_t mode = exists(before) ? static_cast<mode_t>(before.permissions()) : 0666;
  UniqueFd file = openFile(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL, mode);
  if (!file) fail(path, "cannot be written");
  files_.push_back({target, temporary});
  // What the mask of the process has taken away.
  if (exists(before)) std::filesystem::permissions(temporary, before.permissions(), error);
  const bool written = writeAt(file.get(), content.data(), content.size(), 0);
  // Some file systems report a full disk only when the file is closed.
  if (!written || !file.close()) fail(path, "cannot be written");
}

void OutputFiles::commit() {
  for (const Written& file : files_) {
    if (std::rename(file.temporary.c_str(), file.target.c_str()) != 0)
      fail(file.target, "cannot be renamed into place");
  }
  files_.clear();
}
