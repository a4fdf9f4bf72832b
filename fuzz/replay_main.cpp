// SPDX-License-Identifier: Apache-2.0
// Runs inputs through a fuzz target's entry point without libFuzzer, so that
// the inputs that once crashed a target stay fixed in the normal test builds.
// Usage: replay FILE|DIR...
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) __attribute__((weak));

namespace {

std::vector<std::filesystem::path> Inputs(int argc, char** argv)
{
  std::vector<std::filesystem::path> files;
  for (int i = 1; i < argc; ++i) {
    const std::filesystem::path path(argv[i]);
    if (!std::filesystem::is_directory(path)) {
      files.push_back(path);
      continue;
    }
    for (const auto& entry : std::filesystem::directory_iterator(path))
      if (entry.is_regular_file())
        files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

} // namespace

int main(int argc, char** argv)
{
  if (LLVMFuzzerInitialize != nullptr)
    LLVMFuzzerInitialize(&argc, &argv);
  const auto files = Inputs(argc, argv);
  for (const auto& file : files) {
    std::ifstream in(file, std::ios::binary);
    if (!in) {
      std::fprintf(stderr, "replay: cannot read %s\n", file.c_str());
      return 1;
    }
    const std::vector<char> bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    std::printf("replay: %s (%zu bytes)\n", file.c_str(), bytes.size());
    std::fflush(stdout);
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
  }
  std::printf("replay: %zu inputs, none crashed\n", files.size());
  return 0;
}
