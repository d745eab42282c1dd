#include <archive.h>
#include <archive_entry.h>
#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>
#include <sstream>
#include <sys/stat.h>
#include <vector>

#include "kestrel/json/JsomWriter.h"
#include "listing/RegularFile.h"
#include "prepare/Bundle.h"
#include "prepare/PrepareError.h"

namespace prepare {

namespace {

constexpr std::size_t BLOCK = 1 << 20;
constexpr std::size_t MOST_WITHOUT_SIZE = std::size_t{256} << 20;  // lists in /proc

// Throws for a place where something stands that is not to be replaced.
std::string checkedPlace(const std::string& place) {
  struct stat status {};
  if (lstat(place.c_str(), &status) == 0 &&
      (!S_ISREG(status.st_mode) || (status.st_size > 0 && !isBundle(place)))) {
    throw PrepareError(place +
                       ": stands there already and is no bundle. Name another file, or remove "
                       "this one.");
  }
  return place;
}

std::string manifestOf(const std::string& recordingName) {
  std::ostringstream out;
  {
    kestrel::JsomWriter json(&out);
    json.startObject();
    json.appendLabel("version", true);
    json.appendInt(Bundle::VERSION);
    json.appendLabel("recording", true);
    json.appendString(recordingName, false);
    json.endObject();
    json.end();
  }
  return out.str() + "\n";
}

}  // namespace

BundleWriter::BundleWriter(const std::string& place, const std::string& recordingName)
    : place_(checkedPlace(place)), file_(place) {
  if (!file_.isOpen()) {
    throw PrepareError(place_ + ": cannot be written: " + std::strerror(file_.getError()) + ".");
  }
  // As perf's recordings: for their owner, and so is the kernel's list.
  chmod(file_.temporaryPath().c_str(), 0600);
  archive_ = archive_write_new();
  // The form of GNU tar has names as they are, whatever their bytes, and sizes of any length. A
  // filter that would start another program answers with a warning.
  if (archive_ == nullptr || archive_write_set_format_gnutar(archive_) != ARCHIVE_OK ||
      archive_write_add_filter_zstd(archive_) != ARCHIVE_OK ||
      archive_write_open_filename(archive_, file_.temporaryPath().c_str()) != ARCHIVE_OK) {
    _fail();
  }
  _addText(Bundle::MANIFEST, manifestOf(recordingName));
}

BundleWriter::~BundleWriter() {
  if (archive_ != nullptr) {
    archive_write_fail(archive_);
    archive_write_free(archive_);
  }
}

void BundleWriter::_fail() const {
  const char* const reason = archive_ == nullptr ? nullptr : archive_error_string(archive_);
  throw PrepareError(
      place_ + ": cannot be written: " + (reason == nullptr ? "out of memory" : reason) + ".");
}

void BundleWriter::_begin(const std::string& name, std::uint64_t size) {
  const std::unique_ptr<archive_entry, void (*)(archive_entry*)> entry(archive_entry_new(),
                                                                       archive_entry_free);
  if (!entry) {
    throw std::bad_alloc();
  }
  archive_entry_set_pathname(entry.get(), name.c_str());
  archive_entry_set_filetype(entry.get(), AE_IFREG);
  archive_entry_set_perm(entry.get(), 0644);
  archive_entry_set_size(entry.get(), static_cast<la_int64_t>(size));
  if (archive_write_header(archive_, entry.get()) != ARCHIVE_OK) {
    _fail();
  }
  names_.insert(name);
  bytes_ += size;
}

void BundleWriter::_put(const char* bytes, std::size_t count) {
  if (archive_write_data(archive_, bytes, count) != static_cast<la_ssize_t>(count)) {
    _fail();
  }
}

void BundleWriter::_addText(const std::string& name, const std::string& text) {
  _begin(name, text.size());
  _put(text.data(), text.size());
}

bool BundleWriter::addFile(const std::string& name, const std::string& path) {
  if (has(name)) {
    return true;
  }
  const std::optional<listing::RegularFile> file = listing::RegularFile::open(path);
  if (!file) {
    return false;
  }
  if (file->size() == 0) {  // of /proc, too
    _addText(name, file->readText(MOST_WITHOUT_SIZE));
    return true;
  }
  std::vector<char> block(BLOCK);
  for (std::uint64_t at = 0; at < file->size();) {
    const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(BLOCK, file->size() - at));
    if (!file->read(at, block.data(), count)) {
      if (at == 0) {
        return false;
      }
      throw PrepareError(path + ": cannot be read, or became shorter meanwhile.");
    }
    if (at == 0) {
      _begin(name, file->size());
    }
    _put(block.data(), count);
    at += count;
  }
  return true;
}

void BundleWriter::commit() {
  if (archive_write_close(archive_) != ARCHIVE_OK) {
    _fail();
  }
  archive_write_free(archive_);
  archive_ = nullptr;
  checkedPlace(place_);
  if (!file_.commit()) {
    throw PrepareError(place_ + ": cannot be put there: " + std::strerror(file_.getError()) + ".");
  }
}

}  // namespace prepare
