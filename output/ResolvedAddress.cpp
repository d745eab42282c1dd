#include "output/ResolvedAddress.h"

#include <charconv>

void ResolvedAddress::set(uint32_t ofPid, uint64_t ofAddress, MMapInfo* itsMap,
                          FunctionInfo* itsFunction) {
  pid = ofPid;
  address = ofAddress;
  map = itsMap;
  function = itsFunction;
  length = 0;
  char* const last = text + TEXT_BYTES;
  std::to_chars_result end = std::to_chars(text, last, address);
  if (end.ptr == last) {
    return;
  }
  *end.ptr = ',';
  end = std::to_chars(end.ptr + 1, last, item()->key);
  if (end.ec == std::errc()) {
    length = static_cast<uint8_t>(end.ptr - text);
  }
}
