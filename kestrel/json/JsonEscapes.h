// The one place that says which bytes of a JSON text are written as a backslash and a letter. No
// other byte is ever escaped: control bytes, the slash and bytes from 128 on are written as they
// are.
#pragma once

namespace kestrel {

// The letter that stands for the byte after a backslash, or 0 if the byte is written as it is.
constexpr char jsonEscapeLetter(char byte) {
  switch (byte) {
    case '\b':
      return 'b';
    case '\t':
      return 't';
    case '\n':
      return 'n';
    case '\f':
      return 'f';
    case '\r':
      return 'r';
    case '"':
      return '"';
    case '\\':
      return '\\';
    default:
      return 0;
  }
}

}  // namespace kestrel
