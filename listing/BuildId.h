// The build id of an ELF file: the content of its note NT_GNU_BUILD_ID, 20 bytes as linkers make it
// by default, and any other length. Two files of the same id were the same file before symbols were
// stripped from one of them.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace listing {

using BuildId = std::vector<unsigned char>;  // empty: not known

// Two lower-case hexadecimal digits a byte; empty for an unknown one.
std::string hexText(const BuildId& id);

// Whether they name the same file. Recordings before perf 5.12 hold 20 bytes whatever the length of
// the id, filled with zeros; an unknown id is no other's.
bool isSameBuildId(const BuildId& a, const BuildId& b);

// The build id in the content of a note section or segment; `isBigEndian` is of the file. Nothing
// if there is none, or if the notes are broken before it.
std::optional<BuildId> findBuildId(std::string_view notes, bool isBigEndian);

}  // namespace listing
