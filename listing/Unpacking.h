// Packed bytes unpacked in memory, up to a limit: what a few bytes unpack to can be endless.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace listing {

// Nothing for bytes that are broken or cut off, or more than `limit` unpacked.
std::optional<std::string> unpackXz(std::string_view bytes, std::size_t limit);
std::optional<std::string> unpackGzip(std::string_view bytes, std::size_t limit);
std::optional<std::string> unpackZstd(std::string_view bytes, std::size_t limit);

// By the first bytes; what is not packed in one of these ways is itself.
std::optional<std::string> unpackAny(std::string bytes, std::size_t limit);

}  // namespace listing
