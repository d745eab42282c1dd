// What fixtures/chain.c prints: a real stack of a known chain of calls.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "unwinding/Machine.h"
#include "unwinding/Map.h"

struct ChainDump {
  struct MappedFile {
    unwinding::Map map;  // its file is the place in `files`
    std::string path;
  };

  unwinding::Machine machine = unwinding::Machine::X86_64;
  unwinding::Registers registers;
  std::vector<unsigned char> stack;
  std::vector<MappedFile> files;
  std::uint64_t signalReturn = 0;      // where the handler returns to; 0: no signal
  std::vector<unsigned char> vdso;     // its bytes; its path is [vdso]
  std::vector<std::uint64_t> callers;  // return addresses, innermost first

  unwinding::UserState state() const { return {machine, registers, stack}; }
};

ChainDump readChainDump(const std::string& path);
