// Feeds files to a fuzz target, one after another: a plain main() for compilers, sanitizers and
// processors that libFuzzer does not know.
//
//   replay FILE-OR-FOLDER...
//
// Ends with status 1 when there is no file at all; a finding aborts.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "tests/fuzz/FuzzTarget.h"

namespace {

std::vector<std::string> filesOf(int argc, char** argv) {
  std::vector<std::string> files;
  for (int i = 1; i < argc; ++i) {
    if (!std::filesystem::is_directory(argv[i])) {
      files.push_back(argv[i]);
      continue;
    }
    for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
      files.push_back(entry.path());
    }
  }
  std::sort(files.begin(), files.end());
  return files;
}

std::string bytesOf(const std::string& path) {
  std::ifstream in(path, std::ios::in | std::ios::binary);
  if (!in.is_open()) {
    reportFinding("cannot read " + path);
  }
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void feed(const std::string& bytes) {
  LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
}

}  // namespace

int main(int argc, char* argv[]) {
  LLVMFuzzerInitialize(&argc, &argv);
  const std::vector<std::string> files = filesOf(argc, argv);
  if (files.empty()) {
    std::printf("replay: no files\n");
    return 1;
  }
  feed("");
  for (const std::string& file : files) {
    std::printf("%s\n", file.c_str());
    std::fflush(stdout);  // known, whatever happens next
    feed(bytesOf(file));
  }
  std::printf("replay: %zu files\n", files.size());
  return 0;
}
