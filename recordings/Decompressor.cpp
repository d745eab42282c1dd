#include "recordings/Decompressor.h"

#include <cstring>
#include <new>
#include <zstd.h>

#include "recordings/Abi.h"

namespace recordings {

namespace {

// Room for a started record and a good deal more.
constexpr std::size_t BUFFER_SIZE = 256 * 1024;
// perf packs with windows of at most 8 MiB (level 22: 128 MiB, which nobody uses for recording).
constexpr int LARGEST_WINDOW_LOG = 24;

}  // namespace

struct Decompressor::Stream {
  std::unique_ptr<ZSTD_DCtx, decltype(&ZSTD_freeDCtx)> context{ZSTD_createDCtx(), &ZSTD_freeDCtx};
  ZSTD_inBuffer input{nullptr, 0, 0};
};

Decompressor::Decompressor()
    : stream_(std::make_unique<Stream>()),
      buffer_(std::make_unique_for_overwrite<unsigned char[]>(BUFFER_SIZE)) {
  if (stream_->context == nullptr) {
    throw std::bad_alloc();
  }
  ZSTD_DCtx_setParameter(stream_->context.get(), ZSTD_d_windowLogMax, LARGEST_WINDOW_LOG);
}

Decompressor::~Decompressor() = default;

void Decompressor::give(Bytes packed) {
  stream_->input = {packed.data(), packed.size(), 0};
  isDrained_ = false;
}

bool Decompressor::unpack() {
  if (first_ > 0) {
    std::memmove(buffer_.get(), buffer_.get() + first_, last_ - first_);
    last_ -= first_;
    first_ = 0;
  }
  ZSTD_outBuffer output{buffer_.get(), BUFFER_SIZE, last_};
  while (output.pos < output.size) {
    const std::size_t before = output.pos;
    const std::size_t result =
        ZSTD_decompressStream(stream_->context.get(), &output, &stream_->input);
    if (ZSTD_isError(result)) {
      return false;
    }
    const bool isInputUsed = stream_->input.pos == stream_->input.size;
    // A full buffer may leave unpacked bytes inside the context: they come with the next call.
    if (isInputUsed && (output.pos == before || output.pos < output.size)) {
      isDrained_ = true;
      break;
    }
  }
  last_ = output.pos;
  return true;
}

}  // namespace recordings
