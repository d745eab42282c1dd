#include "prepare/PlainRecording.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <unistd.h>
#include <utility>
#include <vector>

#include "prepare/PrepareError.h"
#include "recordings/Abi.h"

namespace prepare {

namespace abi = recordings::abi;

namespace {

constexpr std::size_t BUFFER_SIZE = 512 * 1024;
constexpr std::size_t ATTRIBUTE_SIZE = 96;
constexpr std::size_t ENTRY_SIZE = ATTRIBUTE_SIZE + abi::SECTION_SIZE;
constexpr std::size_t DATA_OFFSET = abi::HEADER_SIZE + ENTRY_SIZE;
constexpr std::size_t LONGEST_MAP_NAME = 32 * 1024;
constexpr std::size_t LONGEST_FACT = 32 * 1024;
constexpr std::size_t MOST_WORDS = 32 * 1024;  // of the command line

constexpr std::uint64_t FLAG_MMAP = 1u << 8;
constexpr std::uint64_t FLAG_COMM = 1u << 9;
constexpr std::uint64_t FLAG_SAMPLE_ID_ALL = 1u << abi::FLAG_SAMPLE_ID_ALL;

// Puts numbers behind each other in the byte order of this machine.
class FieldWriter {
 public:
  explicit FieldWriter(unsigned char* at) : at_(at) {}
  template <typename T>
  FieldWriter& put(T value) {
    std::memcpy(at_, &value, sizeof(T));
    at_ += sizeof(T);
    return *this;
  }
  FieldWriter& header(std::uint32_t type, std::uint16_t misc, std::size_t size) {
    return put(type).put(misc).put(static_cast<std::uint16_t>(size));
  }
  // Padded with NULs to `room` bytes, which may be the trailer's, too: all zeros, as in the records
  // that perf makes of what was there at the start. So perf takes them before all samples.
  void text(const std::string& text, std::size_t room) {
    std::memset(at_, 0, room);
    std::memcpy(at_, text.data(), text.size());
  }
  void words(std::span<const std::uint64_t> words) {
    std::memcpy(at_, words.data(), words.size_bytes());
  }

 private:
  unsigned char* at_;
};

// With its NUL, in whole words.
std::size_t roomFor(const std::string& text) { return (text.size() + 8) & ~std::size_t{7}; }

template <typename T>
std::string bytesOf(T value) {
  return std::string(reinterpret_cast<const char*>(&value), sizeof value);
}

// As perf writes it: padded with NULs, at least one, to a multiple of 64 bytes, and their number in
// front.
std::string factText(std::string text) {
  text.resize(std::min(text.size(), LONGEST_FACT));
  text.resize((text.size() + 64) & ~std::size_t{63});
  return bytesOf(static_cast<std::uint32_t>(text.size())) + text;
}

std::string factTexts(const std::vector<std::string>& texts) {
  const std::size_t count = std::min(texts.size(), MOST_WORDS);
  std::string bytes = bytesOf(static_cast<std::uint32_t>(count));
  for (std::size_t i = 0; i < count; ++i) {
    bytes += factText(texts[i]);
  }
  return bytes;
}

// By feature, which is the order in which they stand in a file.
std::map<unsigned, std::string> featuresOf(const recordings::Facts& facts) {
  std::map<unsigned, std::string> features;
  const std::pair<unsigned, const std::string&> texts[] = {
      {abi::FEATURE_HOSTNAME, facts.hostname},   {abi::FEATURE_OSRELEASE, facts.osRelease},
      {abi::FEATURE_VERSION, facts.perfVersion}, {abi::FEATURE_ARCH, facts.architecture},
      {abi::FEATURE_CPUDESC, facts.processor},   {abi::FEATURE_CPUID, facts.processorId}};
  for (const auto& [feature, text] : texts) {
    if (!text.empty()) {
      features[feature] = factText(text);
    }
  }
  if (!facts.commandLine.empty()) {
    features[abi::FEATURE_CMDLINE] = factTexts(facts.commandLine);
  }
  return features;
}

}  // namespace

PlainRecording::PlainRecording(const std::string& path, const recordings::Attribute& original,
                               Fields fields)
    : path_(path),
      descriptor_(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666)),
      original_(original),
      fields_(fields),
      written_(DATA_OFFSET),
      buffer_(std::make_unique_for_overwrite<unsigned char[]>(BUFFER_SIZE)) {
  if (descriptor_ == -1) {
    throw PrepareError(path + ": cannot be written: " + std::strerror(errno) + ".");
  }
}

PlainRecording::~PlainRecording() { close(descriptor_); }

void PlainRecording::_write(const unsigned char* bytes, std::size_t count, std::uint64_t offset) {
  while (count > 0) {
    const ssize_t done = pwrite(descriptor_, bytes, count, static_cast<off_t>(offset));
    if (done < 0) {
      if (errno == EINTR) {
        continue;
      }
      throw PrepareError(path_ + ": cannot be written: " + std::strerror(errno) + ".");
    }
    bytes += done;
    count -= static_cast<std::size_t>(done);
    offset += static_cast<std::uint64_t>(done);
  }
}

void PlainRecording::_flush() {
  _write(buffer_.get(), used_, written_);
  written_ += used_;
  used_ = 0;
}

unsigned char* PlainRecording::_claim(std::size_t bytes) {
  if (used_ + bytes > BUFFER_SIZE) {
    _flush();
  }
  unsigned char* const at = buffer_.get() + used_;
  used_ += bytes;
  return at;
}

void PlainRecording::addSample(const recordings::Sample& sample, std::uint32_t tid,
                               std::span<const std::uint64_t> frames) {
  const std::size_t count = fields_.chain ? std::min(frames.size(), MOST_FRAMES) : 0;
  const std::size_t size = abi::RECORD_HEADER_SIZE + 8 + 8 + (fields_.time ? 8 : 0) +
                           (fields_.cpu ? 8 : 0) + (fields_.chain ? 8 + count * 8 : 0);
  FieldWriter record(_claim(size));
  record.header(abi::RECORD_SAMPLE, sample.misc, size);
  record.put(frames.front()).put(sample.pid).put(tid);
  if (fields_.time) {
    record.put(sample.time);
  }
  if (fields_.cpu) {
    record.put(sample.cpu).put(std::uint32_t{0});
  }
  if (fields_.chain) {
    record.put(std::uint64_t{count});
    record.words(frames.first(count));
  }
}

std::size_t PlainRecording::_trailerSize() const {
  const std::size_t parts =
      1u + (fields_.time ? 1u : 0u) + (fields_.cpu ? 1u : 0u);  // thread, time, CPU
  return parts * 8;
}

void PlainRecording::addName(std::uint32_t pid, std::uint32_t tid, const std::string& name) {
  const std::string kept = name.substr(0, LONGEST_MAP_NAME);
  const std::size_t room = roomFor(kept) + _trailerSize();
  const std::size_t size = abi::RECORD_HEADER_SIZE + 8 + room;
  FieldWriter record(_claim(size));
  record.header(abi::RECORD_COMM, 0, size).put(pid).put(tid).text(kept, room);
}

void PlainRecording::addMap(std::uint32_t pid, std::uint32_t tid, std::uint64_t start,
                            std::uint64_t size, std::uint64_t pageOffset, const std::string& name,
                            bool isKernel) {
  const std::string kept = name.substr(0, LONGEST_MAP_NAME);
  const std::size_t room = roomFor(kept) + _trailerSize();
  const std::size_t bytes = abi::RECORD_HEADER_SIZE + 32 + room;
  FieldWriter record(_claim(bytes));
  record.header(abi::RECORD_MMAP, isKernel ? abi::MISC_KERNEL : abi::MISC_USER, bytes)
      .put(pid)
      .put(tid)
      .put(start)
      .put(size)
      .put(pageOffset)
      .text(kept, room);
}

void PlainRecording::finish(const recordings::Facts& origin) {
  _flush();
  const std::uint64_t dataSize = written_ - DATA_OFFSET;
  _writeHeader(dataSize, _writeOrigin(origin));
}

// Places and sizes, then the sections themselves.
std::uint64_t PlainRecording::_writeOrigin(const recordings::Facts& origin) {
  const std::map<unsigned, std::string> features = featuresOf(origin);
  std::uint64_t bits = 0;
  std::string places;
  std::string sections;
  const std::uint64_t begin = written_ + features.size() * abi::SECTION_SIZE;
  for (const auto& [feature, section] : features) {
    bits |= std::uint64_t{1} << feature;
    places +=
        bytesOf(std::uint64_t{begin + sections.size()}) + bytesOf(std::uint64_t{section.size()});
    sections += section;
  }
  const std::string all = places + sections;
  _write(reinterpret_cast<const unsigned char*>(all.data()), all.size(), written_);
  return bits;
}

void PlainRecording::_writeHeader(std::uint64_t dataSize, std::uint64_t features) {
  unsigned char header[DATA_OFFSET] = {};
  std::memcpy(header, abi::MAGIC_2, abi::MAGIC_SIZE);
  FieldWriter fields(header + abi::MAGIC_SIZE);
  fields.put(std::uint64_t{abi::HEADER_SIZE}).put(std::uint64_t{ENTRY_SIZE});
  fields.put(std::uint64_t{abi::HEADER_SIZE}).put(std::uint64_t{ENTRY_SIZE});
  fields.put(std::uint64_t{DATA_OFFSET}).put(dataSize);
  fields.put(std::uint64_t{0}).put(std::uint64_t{0}).put(features);  // no names of events

  const std::uint64_t sampleType =
      abi::SAMPLE_IP | abi::SAMPLE_TID | (fields_.time ? abi::SAMPLE_TIME : 0) |
      (fields_.cpu ? abi::SAMPLE_CPU : 0) | (fields_.chain ? abi::SAMPLE_CALLCHAIN : 0);
  const std::uint64_t flags =
      FLAG_MMAP | FLAG_COMM | FLAG_SAMPLE_ID_ALL | (original_.flags & 1ull << abi::FLAG_FREQUENCY);
  FieldWriter attribute(header + abi::HEADER_SIZE);
  attribute.put(original_.type).put(std::uint32_t{ATTRIBUTE_SIZE});
  attribute.put(original_.config).put(original_.period).put(sampleType);
  attribute.put(std::uint64_t{0}).put(flags);
  _write(header, sizeof header, 0);
}

}  // namespace prepare
