// Fuzz target: bundles that anybody may have written. The first byte says what the rest is: 't' an
// archive without compression, whose headers get their checksums here, so that a changed one is
// still read; anything else is the file as it is. Whether it is taken or refused, there are regular
// files and folders below the given folder, and nothing beside it.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <unistd.h>

#include "kestrel/FileUtils.h"
#include "prepare/Bundle.h"
#include "prepare/PrepareError.h"
#include "tests/fuzz/FuzzTarget.h"

namespace {

namespace fs = std::filesystem;

constexpr std::size_t BLOCK = 512;
constexpr std::size_t CHECKSUM = 148;  // tar(5)
constexpr std::size_t CHECKSUM_SIZE = 8;
constexpr std::size_t MAGIC = 257;

void addChecksums(std::string& archive) {
  for (std::size_t at = 0; at + BLOCK <= archive.size(); at += BLOCK) {
    if (std::string_view(archive).substr(at + MAGIC, 5) != "ustar") {
      continue;
    }
    archive.replace(at + CHECKSUM, CHECKSUM_SIZE, CHECKSUM_SIZE, ' ');
    unsigned sum = 0;
    for (std::size_t i = 0; i < BLOCK; ++i) {
      sum += static_cast<unsigned char>(archive[at + i]);
    }
    char text[CHECKSUM_SIZE];
    std::snprintf(text, sizeof text, "%06o", sum);
    archive.replace(at + CHECKSUM, CHECKSUM_SIZE - 1, text, CHECKSUM_SIZE - 1);
  }
}

class Place {
 public:
  Place() { require(mkdtemp(path_.data()) != nullptr, "a folder can be made"); }
  ~Place() { fs::remove_all(path_); }
  Place(const Place&) = delete;
  Place& operator=(const Place&) = delete;
  std::string file(const std::string& name) const { return path_ + '/' + name; }

  void requireNothingElse() const {
    for (const auto& entry : fs::directory_iterator(path_)) {
      require(entry.path() == file("bundle") || entry.path() == file("folder"),
              "nothing is written outside the folder");
    }
    if (!fs::exists(file("folder"))) {
      return;
    }
    for (const auto& entry : fs::recursive_directory_iterator(file("folder"))) {
      require(!entry.is_symlink() && (entry.is_regular_file() || entry.is_directory()),
              "there are files and folders only");
      require(!entry.is_regular_file() || entry.hard_link_count() == 1, "no file has two names");
    }
  }

 private:
  std::string path_ = "/tmp/bundle-fuzz-XXXXXX";
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) { return 0; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  if (size == 0) {
    return 0;
  }
  std::string bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
  if (data[0] == 't') {
    addChecksums(bytes);
  }
  const Place place;
  require(kestrel::FileUtils::writeFile(place.file("bundle"), bytes), "the bundle can be written");
  try {
    const prepare::Bundle bundle =
        prepare::Bundle::unpack(place.file("bundle"), place.file("folder"), false);
    require(fs::exists(bundle.recording), "a bundle that is taken has its recording");
    const fs::path inside = fs::path(bundle.recording).lexically_relative(place.file("folder"));
    require(*inside.begin() == "recording", "the recording is one of the bundle");
  } catch (const prepare::PrepareError& error) {
    require(std::string_view(error.what()).find('\n') == std::string_view::npos,
            "what is refused is refused in one line");
  }
  place.requireNothingElse();
  return 0;
}
