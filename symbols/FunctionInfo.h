// A function, or any other text symbol of a file. The start is the address inside the file, or the
// absolute address for the kernel and for programs that are not relocated; the size reaches to the
// next symbol, 1 for the last one.
#pragma once

#include <cstdint>
#include <string_view>

#include "model/Pooled.h"
#include "model/RangedItem.h"

class FunctionInfo : public RangedItem, public Pooled<FunctionInfo> {
 public:
  // Takes range, line number and name, which it borrows as `other` does; key and use count stay
  // this function's own.
  void copy(const FunctionInfo& other);

  uint32_t lineNumber = 0;  // 0: unknown
  uint32_t refCount = 0;    // addresses of samples and back traces that resolved to this function
  // As listed, demangled by the lister. Borrowed: see SymbolTable::texts().
  std::string_view name;
};
