// The yardstick of bench/compare: what any converter has to do at the least. One loop over the
// mapped perf.data file that prints a row of the document's shape for every sample, with one map
// key for all addresses: no stores, no look-ups, no window. Reads what bench/compare records, no
// more: one attribute's layout, without PERF_SAMPLE_READ.
//
//   floor RECORDING OUTPUT
//
// Layouts: include/uapi/linux/perf_event.h and tools/perf/util/header.h of the Linux kernel.
#include <array>
#include <bit>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr uint64_t MAP_KEY = 65;
constexpr uint64_t MAXIMUM_CALLERS = 16;

template <typename T>
T at(const unsigned char* bytes) {
  T value;
  std::memcpy(&value, bytes, sizeof(T));
  return value;
}

// Where the parts of a sample are, in bytes from the end of the record's header. A part that the
// recording lacks is read from where the next one is.
struct SampleLayout {
  explicit SampleLayout(uint64_t sampleType) {
    constexpr uint64_t BITS_BEFORE_IP = 0x10000;              // identifier
    constexpr uint64_t BITS_BEFORE_CPU = 0x8 | 0x40 | 0x200;  // address, id, stream id
    ip = _bytes(sampleType & BITS_BEFORE_IP);
    tid = ip + _bytes(sampleType & 0x1) + 4;  // behind the pid
    time = tid - 4 + _bytes(sampleType & 0x2);
    cpu = time + _bytes(sampleType & 0x4) + _bytes(sampleType & BITS_BEFORE_CPU);
    callers = cpu + _bytes(sampleType & (0x80 | 0x100));  // behind the period
    isReadable = (sampleType & 0x20) != 0 && (sampleType & 0x10) == 0;
  }

  std::size_t ip;
  std::size_t tid;
  std::size_t time;
  std::size_t cpu;
  std::size_t callers;
  bool isReadable;  // has a call chain, and it stands where `callers` says

 private:
  static std::size_t _bytes(uint64_t bits) {
    return 8 * static_cast<std::size_t>(std::popcount(bits));
  }
};

// Text on its way to a file, in blocks of 64 KiB.
class Output {
 public:
  explicit Output(int file) : file_(file) {}

  // To be called before each row, which must fit into what is left then.
  bool makeRoom() { return buffer_.size() - used_ >= LONGEST_ROW || flush(); }
  bool flush() {
    const std::size_t size = std::exchange(used_, 0);
    for (std::size_t written = 0; written < size;) {
      const ssize_t result = write(file_, buffer_.data() + written, size - written);
      if (result <= 0) {
        return false;
      }
      written += static_cast<std::size_t>(result);
    }
    return true;
  }
  void put(std::string_view text) {
    std::memcpy(_next(), text.data(), text.size());
    used_ += text.size();
  }
  template <typename... Format>
  void number(auto value, Format... format) {
    const auto result = std::to_chars(_next(), buffer_.data() + buffer_.size(), value, format...);
    used_ = static_cast<std::size_t>(result.ptr - buffer_.data());
  }

 private:
  static constexpr std::size_t LONGEST_ROW = 2048;

  char* _next() { return buffer_.data() + used_; }

  std::array<char, 65536> buffer_;
  std::size_t used_ = 0;
  int file_;
};

void putSample(Output& output, const unsigned char* sample, const SampleLayout& layout,
               uint64_t callers, uint64_t nanoseconds) {
  const auto tid = at<uint32_t>(sample + layout.tid);
  output.number(at<uint64_t>(sample + layout.ip));
  output.put(",");
  output.number(MAP_KEY);
  output.put(",");
  output.number(static_cast<double>(static_cast<int64_t>(nanoseconds)) / 1e9,
                std::chars_format::fixed, 6);
  output.put(",");
  output.number(at<uint32_t>(sample + layout.cpu));
  output.put(",");
  output.number(tid);
  output.put(",");
  output.number(tid);
  output.put(",[");
  for (uint64_t i = 1; i < callers && i <= MAXIMUM_CALLERS; ++i) {  // the first is left out
    output.put(i == 1 ? "[" : ",[");
    output.number(at<uint64_t>(sample + layout.callers + 8 + i * 8));
    output.put(",");
    output.number(MAP_KEY);
    output.put("]");
  }
  output.put("]]");
}

// Prints the samples among the records as one JSON array. False when a record is damaged, or a row
// cannot be written.
bool putSamples(Output& output, const unsigned char* records, std::size_t size,
                const SampleLayout& layout) {
  uint64_t rows = 0;
  uint64_t firstTime = 0;
  output.put("[");
  while (size >= 8) {
    const unsigned char* const sample = records + 8;
    const auto type = at<uint32_t>(records);
    const auto recordSize = at<uint16_t>(records + 6);
    if (recordSize < 8 || recordSize > size) {
      return false;
    }
    records += recordSize;
    size -= recordSize;
    if (type != 9) {
      continue;
    }
    const std::size_t chainAt = layout.callers + 8;
    const std::size_t sampleSize = recordSize - std::size_t{8};
    if (sampleSize < chainAt) {
      return false;
    }
    const auto callers = at<uint64_t>(sample + layout.callers);
    const auto time = at<uint64_t>(sample + layout.time);
    if (callers > (sampleSize - chainAt) / 8 || !output.makeRoom()) {
      return false;
    }
    if (rows == 0) {
      firstTime = time;
    }
    output.put(rows == 0 ? "[" : ",[");
    output.number(++rows);
    output.put(",");
    putSample(output, sample, layout, callers, time - firstTime);
  }
  output.put("]");
  return size == 0 && output.flush();
}

bool convert(const unsigned char* file, std::size_t size, Output& output) {
  if (size < 104 || std::memcmp(file, "PERFILE2", 8) != 0) {
    return false;
  }
  const auto attributes = at<uint64_t>(file + 24);
  const auto dataStart = at<uint64_t>(file + 40);
  const auto dataSize = at<uint64_t>(file + 48);
  if (attributes > size - 32 || dataStart > size || dataSize > size - dataStart) {
    return false;
  }
  const SampleLayout layout(at<uint64_t>(file + attributes + 24));
  return layout.isReadable && putSamples(output, file + dataStart, dataSize, layout);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fputs("Usage: floor RECORDING OUTPUT\n", stderr);
    return 1;
  }
  const int input = open(argv[1], O_RDONLY | O_CLOEXEC);
  const int file = open(argv[2], O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  struct stat status {};
  if (input < 0 || file < 0 || fstat(input, &status) != 0) {
    std::perror("floor");
    return 1;
  }
  const auto size = static_cast<std::size_t>(status.st_size);
  void* const bytes = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, input, 0);
  if (bytes == MAP_FAILED) {
    std::perror("floor");
    return 1;
  }
  Output output(file);
  if (!convert(static_cast<const unsigned char*>(bytes), size, output)) {
    std::fprintf(stderr, "floor: cannot convert %s to %s\n", argv[1], argv[2]);
    return 1;
  }
  return 0;
}
