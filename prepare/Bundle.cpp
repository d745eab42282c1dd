#include "prepare/Bundle.h"

#include <cstring>
#include <optional>

#include "listing/RegularFile.h"

namespace prepare {

bool isBundle(const std::string& path) {
  static constexpr unsigned char MAGIC[] = {0x28, 0xb5, 0x2f, 0xfd};  // of zstd, RFC 8878
  unsigned char bytes[sizeof MAGIC];
  const std::optional<listing::RegularFile> file = listing::RegularFile::open(path);
  return file && file->read(0, bytes, sizeof bytes) && std::memcmp(bytes, MAGIC, sizeof MAGIC) == 0;
}

}  // namespace prepare
