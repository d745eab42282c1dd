// The settings that an input of a fuzz target for recordings runs with. The reader does not look at
// a recording's magic, so its last byte chooses them: what it has in other bits than "PERFILE2".
#pragma once

#include <cstddef>
#include <cstdint>

#include "kestrel/TimeConverter.h"

enum PerfFileChoice : unsigned char {
  WHITESPACE = 0x01,
  NO_BACK_TRACE = 0x02,
  WHOLE_BACK_TRACE = 0x04,
  WINDOW = 0x08,
  NO_KERNEL_LIST = 0x10,
  NEGATIVE_SKEW = 0x20,
};

// The choices of a recording; none for one without a magic.
unsigned char choicesIn(const uint8_t* data, std::size_t size);

// Sets the single PerfSettings. The symbol cache counts as frozen and nothing is found on the
// search path, so that no lister runs and no file of the machine is read.
void chooseSettings(unsigned char choices);

kestrel::TimeConverter chooseTimes(unsigned char choices);
