// Builds .eh_frame and .debug_frame sections entry by entry, as DWARF 5, section 6.4.1, and the
// Linux Standard Base lay them out.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/unwinding/ByteText.h"

class FrameSection {
 public:
  // wordSize 4 or 8: of the addresses.
  FrameSection(bool ehFrame, unsigned wordSize, std::uint64_t address = 0)
      : ehFrame_(ehFrame), wordSize_(wordSize), address_(address) {}

  struct Common {
    unsigned version = 1;
    std::string augmentation;  // "" or one that begins with z
    std::vector<unsigned char> augmentationData;
    unsigned char codeAlignment = 1;
    unsigned char dataAlignment = 0x78;  // -8 in SLEB128
    unsigned char returnRegister = 16;
    std::vector<unsigned char> instructions;
  };
  // Returns its offset.
  std::size_t common(const Common& each) {
    ByteText body;
    body.u8(each.version).text(each.augmentation);
    if (each.version == 4) {
      body.u8(wordSize_).u8(0);
    }
    body.u8(each.codeAlignment).u8(each.dataAlignment).u8(each.returnRegister);
    if (!each.augmentation.empty()) {
      body.u8(each.augmentationData.size()).bytes(each.augmentationData);
    }
    body.bytes(each.instructions);
    const std::size_t offset = out_.size();
    out_.u32(4 + body.size()).u32(ehFrame_ ? 0 : 0xffffffff).bytes(body.all());
    return offset;
  }
  // Addresses as they are ("absptr"), or relative to their place in 32 bits.
  FrameSection& function(std::size_t common, std::uint64_t start, std::uint64_t size,
                         const std::vector<unsigned char>& instructions, bool augmented = false,
                         bool relative = false) {
    ByteText body;
    if (relative) {
      body.u32(start - (address_ + out_.size() + 8)).u32(size);
    } else {
      body.number(start, wordSize_).number(size, wordSize_);
    }
    if (augmented) {
      body.u8(0);
    }
    body.bytes(instructions);
    const std::size_t id = ehFrame_ ? out_.size() + 4 - common : common;
    out_.u32(4 + body.size()).u32(id).bytes(body.all());
    return *this;
  }
  FrameSection& raw(const ByteText& more) {
    out_.bytes(more.all());
    return *this;
  }
  const std::vector<unsigned char>& bytes() const { return out_.all(); }

 private:
  bool ehFrame_;
  unsigned wordSize_;
  std::uint64_t address_;
  ByteText out_;
};
