// Which addresses of a symbol list have a name: what listing/ListText.h writes, read back as far as
// that question goes.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace prepare {

class NamedRanges {
 public:
  // A list that cannot be read names nothing.
  explicit NamedRanges(const std::string& listPath);

  bool holds(std::uint64_t address) const;

 private:
  void _addLine(std::string_view line);

  // Ascending: from each to the next there are names, then none, and so on.
  std::vector<std::uint64_t> changes_;
};

}  // namespace prepare
