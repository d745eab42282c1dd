#include "tests/support/recordings/CompressedStream.h"

#include <stdexcept>
#include <zstd.h>

namespace made {

namespace {

constexpr uint32_t TYPE_COMPRESSED = 81;
constexpr uint32_t TYPE_COMPRESSED2 = 83;
constexpr std::size_t LARGEST_RECORD = 0xffff;
constexpr std::size_t HEADER_BYTES = 8;

}  // namespace

struct CompressedStream::Stream {
  Stream() : context(ZSTD_createCStream()) {
    if (context == nullptr) {
      throw std::runtime_error("no memory for zstd");
    }
  }
  ~Stream() { ZSTD_freeCStream(context); }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  ZSTD_CStream* context;
};

CompressedStream::CompressedStream(const Encoding& encoding)
    : kind_(encoding.compression), order_(encoding.order), stream_(std::make_unique<Stream>()) {}

CompressedStream::~CompressedStream() = default;

std::string CompressedStream::push(const std::string& bytes) {
  std::string compressed(ZSTD_compressBound(bytes.size()) + ZSTD_CStreamOutSize(), '\0');
  ZSTD_outBuffer output{compressed.data(), compressed.size(), 0};
  ZSTD_inBuffer input{bytes.data(), bytes.size(), 0};
  std::size_t left = 0;
  do {
    left = ZSTD_compressStream2(stream_->context, &output, &input, ZSTD_e_flush);
    if (ZSTD_isError(left) != 0) {
      throw std::runtime_error(ZSTD_getErrorName(left));
    }
  } while (left != 0);
  compressed.resize(output.pos);

  std::string records;
  const std::size_t most = LARGEST_RECORD - HEADER_BYTES;
  if (kind_ == Compression::COMPRESSED2) {
    return _record(compressed);
  }
  for (std::size_t begin = 0; begin < compressed.size(); begin += most) {
    records += _record(compressed.substr(begin, most));
  }
  return records;
}

std::string CompressedStream::_record(const std::string& compressed) const {
  Fields body;
  if (kind_ == Compression::COMPRESSED2) {
    body.u64(compressed.size()).bytes(compressed).zeros((8 - compressed.size() % 8) % 8);
  } else {
    body.bytes(compressed);
  }
  const std::size_t size = HEADER_BYTES + body.size();
  if (size > LARGEST_RECORD) {
    throw std::length_error("a compressed record of " + std::to_string(size) + " bytes");
  }
  Fields record;
  record.u32(kind_ == Compression::COMPRESSED2 ? TYPE_COMPRESSED2 : TYPE_COMPRESSED).u16(0);
  return record.u16(static_cast<uint16_t>(size)).append(body).in(order_);
}

}  // namespace made
