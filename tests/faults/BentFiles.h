// Sound recordings, cut off and changed in every place that a reader might trust. The layout is
// written down anew from the kernel's perf_event.h and from tools/perf/util/header.h, so that an
// error of the reader under test cannot hide itself.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

// A count, a size or an offset in a file.
struct FileField {
  std::string name;
  std::size_t offset;
  std::size_t width;  // bytes: 2, 4 or 8
};

// The number of 2, 4 or 8 bytes in the byte order of the machine.
uint64_t numberAt(std::string_view bytes, std::size_t offset, std::size_t width);

// Where the records of a sound file begin, and where the last one ends.
std::vector<std::size_t> recordBoundaries(const std::string& file);

// Every count, size and offset of a sound file: of the header, of each attribute, of each record,
// and of what its samples hold. The layout of the samples is that of the first attribute.
std::vector<FileField> sizeFields(const std::string& file);

// The file with its first `samples` samples and its first `others` other records, and nothing
// behind them.
std::string withFewRecords(const std::string& file, std::size_t samples, std::size_t others);

// Called with what is odd about a file, and its bytes.
using BentFileVisitor = std::function<void(const std::string& what, const std::string& bytes)>;

// Cut at every record boundary, and one byte before and after it; header and attributes too.
void visitCuts(const std::string& file, const BentFileVisitor& visit);
// Each byte of the file header with some of its bits flipped.
void visitFlippedHeaderBytes(const std::string& file, const std::vector<unsigned char>& masks,
                             const BentFileVisitor& visit);
// Each of sizeFields() as 0, as 1, as its value plus one, and with all bits set.
void visitChangedFields(const std::string& file, const BentFileVisitor& visit);
