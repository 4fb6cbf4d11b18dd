// Runs a fuzz target on files, or all files of directories, once each.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

int ran = 0;

void runOn(const std::filesystem::path& path) {
  if (std::filesystem::is_directory(path)) {
    for (const auto& entry : std::filesystem::directory_iterator(path)) runOn(entry.path());
    return;
  }
  std::ifstream file(path, std::ios::binary);
  const std::vector<char> bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  // An allocation of exactly this size, so that reading over its end is seen.
  const std::vector<std::uint8_t> exact(bytes.begin(), bytes.end());
  LLVMFuzzerTestOneInput(exact.data(), exact.size());
  ++ran;
}

}  // namespace

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) runOn(argv[i]);
  std::printf("%d inputs\n", ran);
  return ran > 0 ? 0 : 1;
}
