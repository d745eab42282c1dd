#include "output/ResolvedAddress.h"

void ResolvedAddress::set(uint32_t ofPid, uint64_t ofAddress, MMapInfo* itsMap,
                          FunctionInfo* itsFunction) {
  pid = ofPid;
  address = ofAddress;
  map = itsMap;
  function = itsFunction;
}
