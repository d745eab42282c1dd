// How a recording's file is written: every form that perf 2.6.31 to 6.16 gives the same content.
// The default is a file of perf 6.1 with one event.
#pragma once

#include <cstddef>

#include "tests/support/recordings/Fields.h"

namespace made {

enum class Form {
  FILE,          // header of 104 bytes, with feature sections
  SHORT_HEADER,  // header of 72 bytes, before 2.6.32: no feature sections
  PIPE,          // `perf record -o -`: attributes and features are records
};

enum class Magic {
  PERFILE2,  // since 3.4: a number in the writer's order
  PERFFILE,  // before: text in every order
};

enum class Identification {
  NONE,        // one event only
  ID,          // PERF_SAMPLE_ID
  IDENTIFIER,  // PERF_SAMPLE_IDENTIFIER, the first word of a sample
};

enum class Maps {
  MMAP,            // type 1
  MMAP2,           // type 10, with device and inode
  MMAP2_BUILD_ID,  // type 10, with the build id where the map has one
};

enum class Compression {
  NONE,
  COMPRESSED,   // type 81, since 5.2: sizes as they come
  COMPRESSED2,  // type 83, since 6.16: padded to 8 bytes
};

struct Encoding {
  Form form = Form::FILE;
  ByteOrder order = ByteOrder::LITTLE;
  Magic magic = Magic::PERFILE2;
  // 64, 72, ... 136; larger ones than any that exists are filled with zeros.
  std::size_t attributeSize = 128;
  bool hasAttributeSize = true;      // false: the attribute's own size field is 0
  std::size_t attributePadding = 0;  // bytes between an attribute and its ids, in files
  bool hasSampleIdAll = true;
  Identification identification = Identification::NONE;
  Maps maps = Maps::MMAP2;
  Compression compression = Compression::NONE;
  // Bytes of records that are compressed at once; records are split where that falls into them.
  std::size_t pushBytes = 200;
  bool hasRounds = true;        // false: FINISHED_ROUND is left out
  bool attributesLast = false;  // files: behind the feature sections, as `perf inject` may do
  bool hasEventTypes = false;   // files: the section of names that is empty today
  bool hasTracingData = false;  // pipes: a record 66 with its bytes behind it
  bool isUnfinished = false;  // files: data.size 0 and no feature sections, as of a killed recorder
};

}  // namespace made
