// A symbol list on its way to a file: written in pieces, so that a long one is never in memory
// whole.
#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

#include "listing/ListText.h"

namespace listing {

class ListFile {
 public:
  // The file must not exist yet.
  explicit ListFile(const std::string& path);

  // As ListText's.
  void add(std::uint64_t address, std::string_view name, std::string_view sourceFile = {});
  // False if anything could not be written.
  bool close();

 private:
  struct Close {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };
  void _flush();

  std::unique_ptr<std::FILE, Close> file_;
  bool isOk_;
  ListText text_;
};

}  // namespace listing
