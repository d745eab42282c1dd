// Values as text that a page can hold: byte planes, gzip, base64 (PageWriter.h says how they lie).
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

namespace report {

// Writes one column element. `bytes` are the planes or the text; compressed here.
void writeColumn(std::ostream& out, std::string_view name, std::string_view type, std::size_t count,
                 std::string_view encoding, const std::string& bytes);

// The bytes of `values` plane by plane, the lowest first; `width` planes. Values hold no more.
std::string planesOf(const std::vector<uint32_t>& values, unsigned width);
std::string planesOf(const std::vector<uint64_t>& values, unsigned width);

// The bytes that the largest of the values takes: 1, 2, 4 (or 8).
unsigned widthOf(uint64_t largest);

// gzip (RFC 1952) of `bytes`.
std::string compressed(const std::string& bytes);
std::string base64(const std::string& bytes);

}  // namespace report
