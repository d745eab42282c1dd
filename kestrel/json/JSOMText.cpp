// How a handle is read from and written to texts, files and streams.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <new>
#include <string>
#include <system_error>

#include "kestrel/json/JSOM.h"

namespace kestrel {

namespace {

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

// Null for a directory too, which could be opened but not read.
File _openToRead(const char* path) {
  std::error_code error;
  if (path == nullptr || std::filesystem::is_directory(path, error)) {
    return nullptr;
  }
  return File(std::fopen(path, "rb"));
}

// In bytes; negative if the file has none to tell.
long long _sizeOf(std::FILE* file) {
  if (fseeko(file, 0, SEEK_END) != 0) {
    return -1;
  }
  const long long size = ftello(file);
  return fseeko(file, 0, SEEK_SET) == 0 ? size : -1;
}

}  // namespace

void JSOM::toString(std::string& out, int precision) const {
  if (const JSONData* const node = _node()) {
    node->appendJsonString(out, true, precision, 0);
  }
}

void JSOM::toCompactString(std::string& out, int precision) const {
  if (const JSONData* const node = _node()) {
    node->appendJsonString(out, false, precision, 0);
  }
}

JSOM& JSOM::fromString(const char* text) {
  if (text == nullptr) {
    return JERROR;
  }
  JSONData* const node = makeInfoNode("fromString()");
  return node != nullptr && node->setFromJsonString(text) ? *this : JERROR;
}

JSOM& JSOM::fromString(const std::string& text) {
  const std::string kept = text;  // it may be the text of this very node
  return fromString(kept.c_str());
}

JSOM& JSOM::fromFile(const char* path) {
  const auto fail = [](const std::string& message) -> JSOM& {
    _reportError("fromFile()", message.c_str());
    return JERROR;
  };
  const File file = _openToRead(path);
  if (file == nullptr) {
    return fail("could not open file '" + std::string(path == nullptr ? "" : path) + "'");
  }
  const long long size = _sizeOf(file.get());
  if (size < 0) {
    return fail("could not read file");
  }
  if (size >= PTRDIFF_MAX) {
    return fail("could not allocate memory");
  }
  const auto length = static_cast<std::size_t>(size);
  const std::unique_ptr<char[]> text(new (std::nothrow) char[length + 1]);
  if (text == nullptr) {
    return fail("could not allocate memory");
  }
  if (std::fread(text.get(), 1, length, file.get()) != length) {
    return fail("could not read file");
  }
  text[length] = 0;
  return fromString(text.get());
}

JSOM& JSOM::fromStream(std::istream& in) {
  JSONData* const node = makeInfoNode("fromStream()");
  return node != nullptr && node->setFromStream(in) ? *this : JERROR;
}

bool JSOM::toFile(const char* path, int precision) const {
  std::string text;
  toString(text, precision);
  return _writeFile(path, text, "toFile()");
}

bool JSOM::toCompactFile(const char* path, int precision) const {
  std::string text;
  toCompactString(text, precision);
  return _writeFile(path, text, "toCompactFile()");
}

bool JSOM::_writeFile(const char* path, const std::string& text, const char* operation) {
  std::FILE* const file = path == nullptr ? nullptr : std::fopen(path, "w");
  bool isWritten = file != nullptr;
  if (file != nullptr) {
    isWritten = std::fwrite(text.data(), 1, text.size(), file) == text.size();
    // The last bytes may find the disk full only now.
    if (std::fclose(file) != 0) {
      isWritten = false;
    }
  }
  if (!isWritten) {
    _reportError(operation, "could not write file");
  }
  return isWritten;
}

void JSOM::toStream(std::ostream& out) const {
  if (const JSONData* const node = _node()) {
    node->appendStream(out);
  }
}

}  // namespace kestrel
