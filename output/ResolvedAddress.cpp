#include "output/ResolvedAddress.h"

#include <cstring>

#include "kestrel/json/DecimalText.h"

void ResolvedAddress::set(uint32_t ofPid, uint64_t ofAddress, MMapInfo* itsMap,
                          FunctionInfo* itsFunction) {
  pid = ofPid;
  address = ofAddress;
  map = itsMap;
  function = itsFunction;
  char whole[2 * kestrel::DECIMAL_BYTES + 1];
  char* end = kestrel::writeDecimal(address, whole);
  *end++ = ',';
  end = kestrel::writeDecimal(item()->key, end);
  const auto bytes = static_cast<std::size_t>(end - whole);
  length = 0;
  if (bytes <= TEXT_BYTES) {
    std::memcpy(text, whole, bytes);
    length = static_cast<uint8_t>(bytes);
  }
}
