// The page: the viewer's template with the columns of a Profile in it. Each column is an element
//
//     <script type="text/plain" class="column" data-name="sample.time" data-type="u32"
//             data-count="1000" data-encoding="delta">BASE64</script>
//
// BASE64 is gzip (RFC 1952) of the values byte by byte: the lowest byte of all values, then the
// next higher one of all, and so on (u8: 1 byte, u16: 2, u32: 4, u64: 8), or of UTF-8 (json), or of
// UTF-8 with a zero byte behind each text (text). "delta": each value is the difference from the
// one before. docs/formats.md has the columns. No name stands outside of a column.
#pragma once

#include <iosfwd>
#include <string_view>

#include "report/Profile.h"
#include "report/RecordingFacts.h"

namespace report {

void writePage(std::ostream& out, const Profile& profile, const RecordingFacts& facts);

// The viewer as npm built it, with a mark where the columns go.
std::string_view viewerTemplate();

}  // namespace report
