#include "listing/Unpacking.h"

#include <algorithm>
#include <cstdint>
#include <lzma.h>
#include <memory>
#include <utility>
#include <zlib.h>
#include <zstd.h>

namespace listing {

namespace {

constexpr std::size_t FIRST_SIZE = 1 << 16;
constexpr std::uint64_t DECODER_MEMORY = std::uint64_t{256} << 20;

// Makes room behind what `text` holds. False when the limit is reached.
bool _grow(std::string& text, std::size_t limit) {
  if (text.size() >= limit) {
    return false;
  }
  text.resize(std::min(limit, std::max(FIRST_SIZE, text.size() * 2)));
  return true;
}

}  // namespace

std::optional<std::string> unpackXz(std::string_view bytes, std::size_t limit) {
  lzma_stream stream = LZMA_STREAM_INIT;
  if (lzma_stream_decoder(&stream, DECODER_MEMORY, LZMA_CONCATENATED) != LZMA_OK) {
    return std::nullopt;
  }
  const std::unique_ptr<lzma_stream, void (*)(lzma_stream*)> owner(&stream, lzma_end);
  stream.next_in = reinterpret_cast<const std::uint8_t*>(bytes.data());
  stream.avail_in = bytes.size();
  std::string text;
  for (;;) {
    const std::size_t held = static_cast<std::size_t>(stream.total_out);
    if (held == text.size() && !_grow(text, limit)) {
      return std::nullopt;
    }
    stream.next_out = reinterpret_cast<std::uint8_t*>(text.data() + held);
    stream.avail_out = text.size() - held;
    const lzma_ret result = lzma_code(&stream, LZMA_FINISH);
    if (result == LZMA_STREAM_END) {
      text.resize(static_cast<std::size_t>(stream.total_out));
      return text;
    }
    if (result != LZMA_OK) {
      return std::nullopt;
    }
  }
}

std::optional<std::string> unpackGzip(std::string_view bytes, std::size_t limit) {
  z_stream stream{};
  constexpr int GZIP_OR_ZLIB = 15 + 32;
  if (bytes.size() > UINT32_MAX || inflateInit2(&stream, GZIP_OR_ZLIB) != Z_OK) {
    return std::nullopt;
  }
  const std::unique_ptr<z_stream, int (*)(z_stream*)> owner(&stream, inflateEnd);
  std::string packed(bytes);  // zlib wants to write
  stream.next_in = reinterpret_cast<Bytef*>(packed.data());
  stream.avail_in = static_cast<uInt>(packed.size());
  std::string text;
  std::size_t held = 0;
  for (;;) {
    if (held == text.size() && !_grow(text, limit)) {
      return std::nullopt;
    }
    const std::size_t room = std::min<std::size_t>(text.size() - held, UINT32_MAX);
    stream.next_out = reinterpret_cast<Bytef*>(text.data() + held);
    stream.avail_out = static_cast<uInt>(room);
    const int result = inflate(&stream, Z_NO_FLUSH);
    held += room - stream.avail_out;
    if (result == Z_STREAM_END) {
      text.resize(held);
      return text;
    }
    if (result != Z_OK) {
      return std::nullopt;
    }
  }
}

std::optional<std::string> unpackZstd(std::string_view bytes, std::size_t limit) {
  const std::unique_ptr<ZSTD_DStream, std::size_t (*)(ZSTD_DStream*)> stream(ZSTD_createDStream(),
                                                                             ZSTD_freeDStream);
  ZSTD_inBuffer in{bytes.data(), bytes.size(), 0};
  std::string text;
  std::size_t held = 0;
  for (;;) {
    if (held == text.size() && !_grow(text, limit)) {
      return std::nullopt;
    }
    ZSTD_outBuffer out{text.data(), text.size(), held};
    const std::size_t result = ZSTD_decompressStream(stream.get(), &out, &in);
    const bool isStuck = out.pos == held && in.pos == in.size;
    held = out.pos;
    if (ZSTD_isError(result) != 0 || (isStuck && result != 0)) {
      return std::nullopt;
    }
    if (result == 0 && in.pos == in.size) {
      text.resize(held);
      return text;
    }
  }
}

std::optional<std::string> unpackAny(std::string bytes, std::size_t limit) {
  const std::string_view view = bytes;
  if (view.starts_with("\xFD"
                       "7zXZ")) {
    return unpackXz(view, limit);
  }
  if (view.starts_with("\x1F\x8B")) {
    return unpackGzip(view, limit);
  }
  if (view.starts_with("\x28\xB5\x2F\xFD")) {
    return unpackZstd(view, limit);
  }
  return bytes;
}

}  // namespace listing
