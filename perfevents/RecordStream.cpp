#include "perfevents/RecordStream.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <istream>

namespace perfevents {

namespace {

// Larger blocks are no faster: from here on they fall out of the processor's second-level cache.
constexpr std::size_t BLOCK_SIZE = 128 * 1024;

}  // namespace

void RecordStream::takeStream() {
  _keepHeader();
  buffer_.size(BLOCK_SIZE + abi::LARGEST_EVENT_SIZE);
  readError_ = 0;
  blockStart_ = stream_.tellg();
  if (blockStart_ < 0) {
    _noteReadError();
  }
  recordAt_ = 0;
  nextAt_ = 0;
  filledTo_ = 0;
  isCutOff_ = false;
}

// Of the last record, before the buffer is filled anew.
void RecordStream::_keepHeader() {
  if (nextAt_ > 0) {
    std::copy_n(buffer_.data() + recordAt_, header_.size(), header_.begin());
  }
}

// Whether so many bytes lie in the buffer from nextAt_ on.
bool RecordStream::_provide(std::size_t bytes) {
  if (filledTo_ - nextAt_ >= bytes) {
    return true;
  }
  unsigned char* const start = buffer_.data();
  std::memmove(start, start + nextAt_, filledTo_ - nextAt_);
  blockStart_ += static_cast<std::streamoff>(nextAt_);
  filledTo_ -= nextAt_;
  nextAt_ = 0;
  stream_.read(reinterpret_cast<char*>(start + filledTo_),
               static_cast<std::streamsize>(BLOCK_SIZE - filledTo_));
  if (stream_.bad()) {
    _noteReadError();
  }
  filledTo_ += static_cast<std::size_t>(stream_.gcount());
  return filledTo_ >= bytes;
}

// The first one counts.
void RecordStream::_noteReadError() {
  if (readError_ == 0) {
    readError_ = errno;
  }
  stream_.setstate(std::ios_base::badbit);
}

RecordStream::Outcome RecordStream::_nextAcrossBlocks() {
  _keepHeader();
  isCutOff_ = !_provide(header_.size());
  const std::size_t headerBytes = std::min(header_.size(), filledTo_ - nextAt_);
  std::copy_n(buffer_.data() + nextAt_, headerBytes, header_.begin());
  size_ = _sizeAt(header_.data());
  if (size_ < header_.size()) {
    nextAt_ += headerBytes;
    return Outcome::Garbled;
  }
  isCutOff_ = isCutOff_ || !_provide(size_);
  if (isCutOff_) {
    return Outcome::CutOff;
  }
  recordAt_ = nextAt_;
  nextAt_ += size_;
  return Outcome::Record;
}

void RecordStream::returnStream() {
  if (isCutOff_) {
    return;
  }
  stream_.clear();  // a block may have reached the end of the file
  stream_.seekg(blockStart_ + static_cast<std::streamoff>(nextAt_));
}

}  // namespace perfevents
