// Feeds made-up recordings to the fuzz target of recordings, each with a chain of changes. Reaches
// without libFuzzer what a short run of it reaches.
//
//   generate COUNT [FOLDER]
//
// With a folder each recording is also written there, to start a corpus with.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "tests/fuzz/FuzzTarget.h"
#include "tests/fuzz/PerfFileMutator.h"

namespace {

constexpr int CHANGES = 4;

void feed(const std::string& bytes) {
  LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
}

void keep(const std::string& bytes, const std::string& path) {
  std::ofstream out(path, std::ios::out | std::ios::binary | std::ios::trunc);
  out << bytes;
}

}  // namespace

int main(int argc, char* argv[]) {
  LLVMFuzzerInitialize(&argc, &argv);
  const int count = argc > 1 ? std::atoi(argv[1]) : 0;
  if (count <= 0) {
    std::printf("Usage: generate COUNT [FOLDER]\n");
    return 1;
  }
  std::string last;
  for (int i = 0; i < count; ++i) {
    PerfFileMutator mutator(static_cast<unsigned>(i));
    std::string bytes = mutator.generate();
    for (int change = 0; change <= CHANGES; ++change) {
      if (argc > 2) {
        keep(bytes, std::string(argv[2]) + "/" + std::to_string(i) + "-" + std::to_string(change));
      }
      feed(bytes);
      bytes = mutator.mutate(bytes);
    }
    feed(mutator.crossOver(last, bytes));
    last = bytes;
  }
  std::printf("generate: %d recordings\n", count * (CHANGES + 2));
  return 0;
}
