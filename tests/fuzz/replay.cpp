// Runs a target with each file of a directory, for compilers and systems without libFuzzer.
#include <filesystem>
#include <fstream>
#include <iostream>

#include "tests/fuzz/script.h"

int main(int argc, char** argv) {
  LLVMFuzzerInitialize(&argc, &argv);
  int files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
    std::cout << entry.path().string() << std::endl;
    std::ifstream file(entry.path(), std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(file), {});
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    ++files;
  }
  std::cout << files << " files" << std::endl;
  return files > 0 ? 0 : 1;
}
