#include "listing/ListFile.h"

namespace listing {

namespace {

constexpr std::size_t PIECE = 1 << 18;

}  // namespace

ListFile::ListFile(const std::string& path)
    : file_(std::fopen(path.c_str(), "wxe")), isOk_(file_ != nullptr) {}

void ListFile::add(std::uint64_t address, std::string_view name, std::string_view sourceFile) {
  text_.add(address, name, sourceFile);
  if (text_.text().size() >= PIECE) {
    _flush();
  }
}

void ListFile::_flush() {
  const std::string& text = text_.text();
  isOk_ = isOk_ && std::fwrite(text.data(), 1, text.size(), file_.get()) == text.size();
  text_.clear();
}

bool ListFile::close() {
  _flush();
  return isOk_ && std::fclose(file_.release()) == 0;
}

}  // namespace listing
