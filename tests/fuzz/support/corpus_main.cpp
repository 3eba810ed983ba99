// tests/fuzz/support/corpus_main.cpp: runs a fuzz target over the files of the folders that it is
// given, in the order of their names, without a fuzzer.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace {

std::vector<std::filesystem::path> Files(const char *folder) {
  std::vector<std::filesystem::path> files;
  for (const auto &entry : std::filesystem::directory_iterator(folder)) files.push_back(entry);
  std::sort(files.begin(), files.end());
  return files;
}

void Run(const std::filesystem::path &path) {
  std::puts(path.filename().c_str());  // the last one is the one that failed
  std::fflush(stdout);
  std::ifstream file(path, std::ios::binary);
  const std::string bytes(std::istreambuf_iterator<char>(file), {});
  LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t *>(bytes.data()), bytes.size());
}

}  // namespace

int main(int argc, char **argv) {
  int count = 0;
  for (int i = 1; i < argc; ++i)
    for (const std::filesystem::path &path : Files(argv[i])) Run(path), ++count;
  return count > 0 ? 0 : 1;
}
