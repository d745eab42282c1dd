// Frames that are known by the code at their program counter, where a file says nothing of them:
// the trampolines by which signal handlers return, and the entries of procedure linkage tables.
//
// Sources: the kernel's arch/*/kernel/signal*.c and the C libraries' sigreturn code for the first,
// which have to look like this because debuggers know them so; the processor supplements of the ELF
// ABIs for the second.
#pragma once

#include "unwinding/ByteCursor.h"
#include "unwinding/FrameRule.h"

namespace unwinding {

// Bytes that a caller gives from before and from behind the program counter.
constexpr std::size_t CODE_BEFORE = 12;
constexpr std::size_t CODE_BEHIND = 16;

// `code` holds CODE_BEFORE + CODE_BEHIND bytes, or less behind. False when nothing is recognised.
bool recogniseSignalReturn(Machine machine, Bytes code, FrameRule& rule);
bool recogniseLinkageEntry(Machine machine, Bytes code, FrameRule& rule);

}  // namespace unwinding
