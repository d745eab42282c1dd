#include <archive.h>
#include <archive_entry.h>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "kestrel/json/JSOM.h"
#include "listing/RegularFile.h"
#include "prepare/Bundle.h"
#include "prepare/PrepareError.h"

namespace prepare {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t BLOCK = 1 << 20;
constexpr std::uint64_t LARGEST_MANIFEST = 1 << 16;
constexpr std::size_t LONGEST_NAME = 4096;

// Each part of it is a plain name: nothing absolute, no "..", no "." and no empty part.
bool isInside(std::string_view name) {
  for (;;) {
    const std::size_t slash = name.find('/');
    const std::string_view part = name.substr(0, slash);
    if (part.empty() || part == "." || part == "..") {
      return false;
    }
    if (slash == std::string_view::npos) {
      return true;
    }
    name.remove_prefix(slash + 1);
  }
}

class Unpacking {
 public:
  Unpacking(const std::string& path, const std::string& folder, bool recordingOnly)
      : path_(path),
        folder_(folder),
        recordingOnly_(recordingOnly),
        archive_(archive_read_new()),
        block_(BLOCK) {
    // A filter that would start another program answers with a warning.
    if (archive_ == nullptr || archive_read_support_format_tar(archive_) != ARCHIVE_OK ||
        archive_read_support_filter_zstd(archive_) != ARCHIVE_OK ||
        archive_read_open_filename(archive_, path.c_str(), BLOCK) != ARCHIVE_OK) {
      archive_read_free(archive_);
      _refuseOthers();
    }
    std::error_code error;
    const std::uintmax_t size = fs::file_size(path, error);
    if (!error && size < (Bundle::MOST_BYTES - Bundle::LITTLE_MORE) / Bundle::MOST_TIMES) {
      mostBytes_ = size * Bundle::MOST_TIMES + Bundle::LITTLE_MORE;
    }
  }
  ~Unpacking() { archive_read_free(archive_); }
  Unpacking(const Unpacking&) = delete;
  Unpacking& operator=(const Unpacking&) = delete;

  Bundle run() {
    _makeFolder(folder_);
    while (_next()) {
      _take();
    }
    if (entries_ == 0) {
      _refuseOthers();
    }
    Bundle bundle;
    bundle.folder = folder_;
    bundle.recording = folder_ + "/recording/" + _recordingName();
    if (!fs::exists(bundle.recording)) {
      _refuse("holds no recording");
    }
    return bundle;
  }

 private:
  [[noreturn]] void _refuse(const std::string& what) const {
    throw PrepareError(path_ + ": " + what + "; it is not used. Write the bundle anew.");
  }
  [[noreturn]] void _refuseOthers() const {
    throw PrepareError(path_ +
                       ": is compressed, and no bundle of tracemill-prepare. Unpack it if it is a "
                       "recording.");
  }
  [[noreturn]] void _failWriting(const std::string& path) const {
    throw PrepareError(path + ": cannot be written: " + std::strerror(errno) + ".");
  }
  std::string _reason() const {
    const char* const text = archive_ == nullptr ? nullptr : archive_error_string(archive_);
    return text == nullptr ? "out of memory" : text;
  }

  bool _next() {
    const int status = archive_read_next_header(archive_, &entry_);
    if (status == ARCHIVE_EOF) {
      return false;
    }
    if (status != ARCHIVE_OK) {
      if (entries_ == 0) {
        _refuseOthers();
      }
      _refuse("is damaged: " + _reason());
    }
    return true;
  }

  void _take() {
    const char* const text = archive_entry_pathname(entry_);
    std::string name = text == nullptr ? "" : text;
    const bool isFolder = archive_entry_filetype(entry_) == AE_IFDIR;
    if (isFolder && name.ends_with('/')) {
      name.pop_back();
    }
    if (++entries_ == 1 && name != Bundle::MANIFEST) {
      _refuseOthers();
    }
    _check(name, isFolder);
    if (recordingOnly_ && entries_ > 1 && !name.starts_with("recording/")) {
      return;
    }
    const std::string place = folder_ + '/' + name;
    if (isFolder) {
      _makeFolders(name);
      _makeFolder(place);
    } else {
      _makeFolders(name);
      _write(name, place);
    }
  }

  // Names are shown without what a terminal would take for commands.
  static std::string _shown(const std::string& name) {
    std::string shown = name.substr(0, 200);
    for (char& byte : shown) {
      const auto value = static_cast<unsigned char>(byte);
      byte = value < 0x20 || value == 0x7f ? '?' : byte;
    }
    return "'" + shown + "'";
  }

  void _check(const std::string& name, bool isFolder) {
    if (entries_ > Bundle::MOST_ENTRIES) {
      _refuse("holds more than " + std::to_string(Bundle::MOST_ENTRIES) + " files");
    }
    if (name.size() > LONGEST_NAME) {
      _refuse("holds a name of " + std::to_string(name.size()) + " bytes");
    }
    if (!isInside(name)) {
      _refuse("names a file outside itself, " + _shown(name));
    }
    if (archive_entry_hardlink(entry_) != nullptr || archive_entry_symlink(entry_) != nullptr) {
      _refuse("holds a link, " + _shown(name));
    }
    if (!isFolder && archive_entry_filetype(entry_) != AE_IFREG) {
      _refuse("holds something that is neither file nor folder, " + _shown(name));
    }
    if (isFolder) {
      return;
    }
    if (archive_entry_sparse_count(entry_) > 0) {
      _refuse("holds a file with holes, " + _shown(name));
    }
    const la_int64_t size = archive_entry_size(entry_);
    if (size < 0 || static_cast<std::uint64_t>(size) > mostBytes_ - bytes_) {
      _refuse("holds more than " + std::to_string(mostBytes_ >> 20) + " MiB, up to " +
              _shown(name) + ", which is too much for its size");
    }
    bytes_ += static_cast<std::uint64_t>(size);
    if (entries_ == 1 && static_cast<std::uint64_t>(size) > LARGEST_MANIFEST) {
      _refuseOthers();
    }
  }

  void _makeFolder(const std::string& path) const {
    if (mkdir(path.c_str(), 0700) == 0) {
      return;
    }
    struct stat status {};
    if (errno != EEXIST) {
      _failWriting(path);
    }
    if (lstat(path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
      _refuse("holds " + _shown(path.substr(folder_.size() + 1)) + " twice");
    }
  }

  // Those that a name is in. What is in the folder was made here: there are no links to follow.
  void _makeFolders(const std::string& name) const {
    for (std::size_t slash = name.find('/'); slash != std::string::npos;
         slash = name.find('/', slash + 1)) {
      _makeFolder(folder_ + '/' + name.substr(0, slash));
    }
  }

  void _write(const std::string& name, const std::string& place) {
    const int file =
        open(place.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (file == -1) {
      if (errno == EEXIST) {
        _refuse("holds " + _shown(name) + " twice");
      }
      _failWriting(place);
    }
    try {
      _copyTo(file, place);
    } catch (...) {
      close(file);
      throw;
    }
    if (close(file) != 0) {
      _failWriting(place);
    }
  }

  void _copyTo(int file, const std::string& place) {
    for (;;) {
      const la_ssize_t got = archive_read_data(archive_, block_.data(), block_.size());
      if (got == 0) {
        return;
      }
      if (got < 0) {
        _refuse("is damaged: " + _reason());
      }
      for (la_ssize_t done = 0; done < got;) {
        const ssize_t written =
            write(file, block_.data() + done, static_cast<std::size_t>(got - done));
        if (written < 0 && errno != EINTR) {
          _failWriting(place);
        }
        done += std::max<ssize_t>(written, 0);
      }
    }
  }

  std::string _recordingName() const {
    const auto file = listing::RegularFile::open(folder_ + '/' + Bundle::MANIFEST);
    const std::string text = file ? file->readText(LARGEST_MANIFEST) : std::string();
    kestrel::JSOM manifest;
    manifest.fromString(text);
    if (!manifest.isObject()) {
      _refuse("has a broken " + std::string(Bundle::MANIFEST));
    }
    if (manifest["version"].longValue(0) != Bundle::VERSION) {
      throw PrepareError(path_ +
                         ": was written by another version of tracemill-prepare. Read it with "
                         "that one.");
    }
    const std::string name = manifest["recording"].stringValue("");
    if (!isInside(name) || name.find('/') != std::string::npos ||
        name.find('\0') != std::string::npos) {
      _refuse("names a recording outside itself, " + _shown(name));
    }
    return name;
  }

  const std::string& path_;
  const std::string& folder_;
  bool recordingOnly_;
  archive* archive_;
  archive_entry* entry_ = nullptr;  // the archive's
  std::vector<char> block_;
  std::size_t entries_ = 0;
  std::uint64_t bytes_ = 0;
  std::uint64_t mostBytes_ = Bundle::MOST_BYTES;
};

}  // namespace

Bundle Bundle::unpack(const std::string& path, const std::string& folder, bool recordingOnly) {
  return Unpacking(path, folder, recordingOnly).run();
}

}  // namespace prepare
