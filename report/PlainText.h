// Names as they were recorded may be any bytes; what is written for others to read is UTF-8.
#pragma once

#include <string>
#include <string_view>

namespace report {

// Appends `json`, in which each byte inside a string that is no part of valid UTF-8 (RFC 3629) or
// is a control character has become U+FFFD, the replacement character. Outside of strings nothing
// is changed. An escape that stands for a control character stays.
void appendPlainText(std::string& to, std::string_view json);

// `text` as a JSON string in quotes. Control characters and bytes that are no UTF-8 become U+FFFD,
// '<' and '>' are escaped so that the string can stand in a page.
void appendJsonString(std::string& to, std::string_view text);
std::string quotedJson(std::string_view text);

}  // namespace report
