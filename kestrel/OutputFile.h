// An output file stream with a large buffer, for documents of hundreds of megabytes: what fits the
// buffer is copied there at once, where std::ofstream spends most of a short write on preparations.
// Errors set the stream's state, as they do there. One thread at a time.
#pragma once

#include <cstddef>
#include <fstream>
#include <ostream>
#include <string>
#include <vector>

namespace kestrel {

class OutputFile : public std::ostream {
 public:
  OutputFile();
  ~OutputFile() override;

  // Opens for writing, behind what is there or instead of it. On failure is_open() stays false and
  // failbit is set.
  void open(const std::string& path, bool append);
  bool is_open() const { return buffer_.is_open(); }
  // Writes what is buffered; failbit is set when not all of it could be written.
  void close();

 private:
  static constexpr std::size_t BUFFER_SIZE = 128 * 1024;

  class Buffer : public std::filebuf {
   protected:
    std::streamsize xsputn(const char* bytes, std::streamsize length) override;

   private:
    const char* _fill(const char* bytes, std::streamsize length);
  };

  std::vector<char> storage_;  // outlives the buffer that uses it
  Buffer buffer_;
};

}  // namespace kestrel
