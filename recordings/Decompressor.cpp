#include "recordings/Decompressor.h"

#include <cstring>
#include <new>
#include <utility>
#include <zstd.h>

#include "recordings/Abi.h"

namespace recordings {

namespace {

// The largest has room for a started record and a good deal more.
constexpr std::size_t FIRST_BUFFER_SIZE = 8 * 1024;
constexpr std::size_t LAST_BUFFER_SIZE = 256 * 1024;
// perf packs with windows of at most 8 MiB (level 22: 128 MiB, which nobody uses for recording).
constexpr int LARGEST_WINDOW_LOG = 24;
// Of the levels that are for recording.
constexpr std::size_t LARGEST_SPARE = 4 * 1024 * 1024;

struct FreeContext {
  void operator()(ZSTD_DCtx* context) const { ZSTD_freeDCtx(context); }
};
using Context = std::unique_ptr<ZSTD_DCtx, FreeContext>;

// A walk goes through its recording more than once, and a folder has many streams: making a context
// takes longer than unpacking a small one.
Context& spareContext() {
  thread_local Context spare;
  return spare;
}

Context takeContext() {
  Context context = std::move(spareContext());
  if (context == nullptr) {
    context.reset(ZSTD_createDCtx());
  }
  if (context == nullptr) {
    throw std::bad_alloc();
  }
  ZSTD_DCtx_reset(context.get(), ZSTD_reset_session_and_parameters);
  ZSTD_DCtx_setParameter(context.get(), ZSTD_d_windowLogMax, LARGEST_WINDOW_LOG);
  return context;
}

}  // namespace

struct Decompressor::Stream {
  Context context = takeContext();
  ZSTD_inBuffer input{nullptr, 0, 0};

  Stream() = default;
  ~Stream() {
    if (ZSTD_sizeof_DCtx(context.get()) <= LARGEST_SPARE) {
      spareContext() = std::move(context);
    }
  }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;
};

Decompressor::Decompressor()
    : stream_(std::make_unique<Stream>()),
      buffer_(std::make_unique_for_overwrite<unsigned char[]>(FIRST_BUFFER_SIZE)),
      capacity_(FIRST_BUFFER_SIZE) {}

Decompressor::~Decompressor() = default;

void Decompressor::give(Bytes packed) {
  stream_->input = {packed.data(), packed.size(), 0};
  isDrained_ = false;
}

// Moves what is left to the front; a buffer that was full once gets larger.
void Decompressor::_makeRoom() {
  const std::size_t held = last_ - first_;
  if (last_ == capacity_ && capacity_ < LAST_BUFFER_SIZE) {
    auto larger = std::make_unique_for_overwrite<unsigned char[]>(capacity_ * 2);
    std::memcpy(larger.get(), buffer_.get() + first_, held);
    buffer_ = std::move(larger);
    capacity_ *= 2;
  } else if (first_ > 0) {
    std::memmove(buffer_.get(), buffer_.get() + first_, held);
  }
  first_ = 0;
  last_ = held;
}

bool Decompressor::unpack() {
  _makeRoom();
  ZSTD_outBuffer output{buffer_.get(), capacity_, last_};
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
