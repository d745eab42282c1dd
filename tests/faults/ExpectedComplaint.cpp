#include "tests/faults/ExpectedComplaint.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <unistd.h>

#include "tests/faults/BentFiles.h"

namespace {

struct Section {
  uint64_t offset;
  uint64_t size;
};

Section sectionAt(std::string_view file, uint64_t offset) {
  const auto at = static_cast<std::size_t>(offset);
  return {numberAt(file, at, 8), numberAt(file, at + 8, 8)};
}

// Whether the file holds this many bytes there.
bool holds(std::string_view file, uint64_t offset, uint64_t size) {
  return offset <= file.size() && size <= file.size() - offset;
}

// How far behind the end of a file one may go is the file system's affair.
bool canSeekTo(uint64_t offset) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::tmpfile(), &std::fclose);
  return file != nullptr && offset <= uint64_t{INT64_MAX} &&
         lseek(fileno(file.get()), static_cast<off_t>(offset), SEEK_SET) >= 0;
}

std::string headerComplaint(std::string_view file) {
  if (numberAt(file, 8, 8) != 104) {
    return "Invalid header size recorded in perf file header.  Perf file corrupt.";
  }
  const uint64_t entryBytes = numberAt(file, 16, 8);
  if (entryBytes < 80 || entryBytes > 65552) {
    return "Invalid attribute size recorded in perf file header.  Perf file corrupt.";
  }
  for (const std::size_t section : {24U, 56U, 40U}) {
    const auto [offset, size] = sectionAt(file, section);
    if (offset > file.size() || size > file.size()) {
      return section == 24U ? "Invalid attribute offset location.  Perf file corrupt."
                            : "Invalid trace event types offset location.  Perf file corrupt.";
    }
  }
  return "";
}

std::string attributesComplaint(std::string_view file) {
  const uint64_t entryBytes = numberAt(file, 16, 8);
  const auto [offset, size] = sectionAt(file, 24);
  const uint64_t count = size / entryBytes;
  if (!holds(file, offset, count * entryBytes)) {
    return "Error reading perf file attributes.  Perf file corrupt.";
  }
  uint64_t idsLeft = file.size() / 8;
  for (uint64_t i = 0; i < count; ++i) {
    const auto [idsOffset, idsSize] = sectionAt(file, offset + (i + 1) * entryBytes - 16);
    const uint64_t ids = idsSize / 8;
    if (!canSeekTo(idsOffset) || ids > idsLeft || (ids > 0 && !holds(file, idsOffset, ids * 8))) {
      return "Error reading perf file attribute IDs.  Perf file corrupt.";
    }
    idsLeft -= ids;
  }
  const Section types = sectionAt(file, 56);
  if (types.size / 72 > count) {
    return "Number of trace event types is invalid.  Perf file corrupt.";
  }
  if (!holds(file, types.offset, types.size / 72 * 72)) {
    return "Error reading trace event types.  Perf file corrupt.";
  }
  return count == 0 ? NO_ATTRIBUTES : "";
}

// Where the file ends inside a record's header, the rest is that of the record before.
std::string walkComplaint(std::string_view file) {
  const auto [offset, size] = sectionAt(file, 40);
  std::string header(8, '\0');
  uint64_t at = offset;
  for (auto left = static_cast<int64_t>(size); left >= 1;) {
    const std::string_view read = file.substr(static_cast<std::size_t>(at), 8);
    std::copy(read.begin(), read.end(), header.begin());
    const uint64_t recordSize = numberAt(header, 6, 2);
    if (recordSize < 8) {
      return "Garbled event data header size.  Perf file corrupt.";
    }
    if (!holds(file, at, recordSize)) {
      return "Error reading event data from perf file.  Perf file corrupt.";
    }
    at += recordSize;
    left -= static_cast<int64_t>(recordSize);
  }
  return "";
}

}  // namespace

std::string expectedComplaint(std::string_view file) {
  if (file.size() < 200) {
    return "Perf file is of insufficient size.";
  }
  for (auto* const complaintOf : {headerComplaint, attributesComplaint, walkComplaint}) {
    if (std::string complaint = complaintOf(file); !complaint.empty()) {
      return complaint;
    }
  }
  return "";
}
