// Why call chains that were found in stack dumps end before the outermost function, and what would
// help.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "prepare/StackDumps.h"
#include "recordings/MappedFiles.h"

namespace prepare {

struct ChainEnd {
  std::string reason;  // a word for machines
  std::string text;    // a sentence
  std::string name;    // of the file that the chain ended in; empty: none, or any
  std::uint64_t samples = 0;
  std::string cure;
};

// By samples, most first. Chains that are complete, or as long as was asked for, are not in it.
std::vector<ChainEnd> explainChainEnds(const StackDumps& dumps,
                                       const recordings::MappedFiles& files);

}  // namespace prepare
