#include "symbols/FunctionInfo.h"

void FunctionInfo::copy(const FunctionInfo& other) {
  start = other.start;
  size = other.size;
  lineNumber = other.lineNumber;
  name = other.name;
}
