// Fuzz target: a command line is split into words, and put together again.
#include <string>
#include <vector>

#include "kestrel/exec/ShellCommandLineParser.h"
#include "tests/fuzz/AllocationMeter.h"
#include "tests/fuzz/FuzzTarget.h"

using kestrel::ShellCommandLineParser;

extern "C" int LLVMFuzzerInitialize(int*, char***) { return 0; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  const AllocationMeter meter;
  const std::string line(reinterpret_cast<const char*>(data), size);
  std::vector<std::string> words;
  ShellCommandLineParser::parse(line, words);
  requireBoundedMemory(meter, size);

  std::vector<std::string> again;
  ShellCommandLineParser::parse(ShellCommandLineParser::unparse(words), again);
  require(again == words, "a line made of words is split into these words");

  const std::vector<std::string> oneWord = {line};
  again.clear();
  ShellCommandLineParser::parse(ShellCommandLineParser::unparse(oneWord), again);
  require(again == oneWord, "any bytes can be a word");
  return 0;
}
