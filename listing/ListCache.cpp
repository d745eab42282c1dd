#include "listing/ListCache.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <vector>

#include "kestrel/FileUtils.h"
#include "listing/RegularFile.h"

namespace listing {

namespace {

namespace fs = std::filesystem;

// The number counts up when files get other names than before: lists that are kept are made again.
constexpr std::string_view MAGIC = "tracemill-list 2\n";
constexpr std::size_t MAX_INFO = 1 << 16;
constexpr std::string_view TEMPORARY = "new-";

// FNV-1a; two of them, begun differently, make a key. Entries tell their source, so a clash costs a
// list only.
std::uint64_t _hash(std::string_view text, std::uint64_t hash) {
  for (const char c : text) {
    hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3U;
  }
  return hash;
}

std::string _hex(std::uint64_t number) {
  char text[17] = "0000000000000000";
  char digits[16];
  const auto end = std::to_chars(digits, digits + sizeof(digits), number, 16).ptr;
  std::copy_backward(digits, end, text + 16);
  return text;
}

// Source, outcome and origin of the symbols, each behind its size.
std::string _infoOf(const std::string& source, const ListCache::Entry& entry) {
  return std::string(MAGIC) + std::to_string(source.size()) + ' ' + source + '\n' +
         std::to_string(static_cast<int>(entry.outcome)) +
         (entry.list.empty() ? " none " : " list ") + entry.symbolsFrom + '\n';
}

}  // namespace

ListCache::ListCache(const std::string& directory, std::uint64_t maxSize) : maxSize_(maxSize) {
  if (directory.empty()) {
    return;
  }
  const std::string lists = directory + "/lists";
  if (kestrel::FileUtils::mkpath(lists, true) && ::access(lists.c_str(), W_OK | X_OK) == 0) {
    directory_ = lists;
  }
}

std::string ListCache::_pathOf(const std::string& source) const {
  return directory_ + '/' + _hex(_hash(source, 0xcbf29ce484222325U)) +
         _hex(_hash(source, 0x9e3779b97f4a7c15U));
}

std::optional<ListCache::Entry> ListCache::find(const std::string& source) {
  if (directory_.empty()) {
    return std::nullopt;
  }
  const std::string path = _pathOf(source);
  const std::optional<RegularFile> info = RegularFile::open(path + ".info");
  if (!info) {
    return std::nullopt;
  }
  const std::string text = info->readText(MAX_INFO);
  const std::string head = std::string(MAGIC) + std::to_string(source.size()) + ' ' + source + '\n';
  if (!text.starts_with(head) || text.back() != '\n') {
    return std::nullopt;
  }
  const std::string_view rest = std::string_view(text).substr(head.size());
  int outcome = -1;
  const char* const end = std::from_chars(rest.data(), rest.data() + rest.size(), outcome).ptr;
  const std::string_view tail = rest.substr(static_cast<std::size_t>(end - rest.data()));
  if (outcome < 0 || outcome > static_cast<int>(Outcome::OldPerfMap) || tail.size() < 7) {
    return std::nullopt;
  }
  Entry entry;
  entry.outcome = static_cast<Outcome>(outcome);
  entry.symbolsFrom = tail.substr(6, tail.size() - 7);
  if (tail.starts_with(" list ")) {
    entry.list = path + ".list";
    if (::access(entry.list.c_str(), R_OK) != 0) {
      return std::nullopt;
    }
  }
  ::utimensat(AT_FDCWD, (path + ".info").c_str(), nullptr, 0);  // when it was last used
  return entry;
}

std::string ListCache::temporaryPath() {
  if (directory_.empty()) {
    return {};
  }
  return directory_ + '/' + std::string(TEMPORARY) + std::to_string(::getpid()) + '-' +
         std::to_string(temporaries_++);
}

std::string ListCache::store(const std::string& source, const Entry& entry) {
  if (directory_.empty()) {
    return {};
  }
  const std::string path = _pathOf(source);
  const std::string info = temporaryPath();
  const std::string text = _infoOf(source, entry);
  const bool isKept =
      text.size() <= MAX_INFO &&
      (entry.list.empty() || ::rename(entry.list.c_str(), (path + ".list").c_str()) == 0);
  if (!isKept) {
    return {};
  }
  if (!kestrel::FileUtils::writeFile(info, text) ||
      ::rename(info.c_str(), (path + ".info").c_str()) != 0) {
    ::unlink(info.c_str());
  }
  return entry.list.empty() ? std::string() : path + ".list";
}

void ListCache::trim() {
  if (directory_.empty()) {
    return;
  }
  struct Kept {
    fs::file_time_type used;
    std::uint64_t size;
    fs::path path;  // of the .info
  };
  std::vector<Kept> all;
  std::uint64_t total = 0;
  std::error_code error;
  const auto longAgo = fs::file_time_type::clock::now() - std::chrono::hours(1);
  for (const fs::directory_entry& entry : fs::directory_iterator(directory_, error)) {
    std::error_code gone;  // by another run
    const fs::file_time_type used = entry.last_write_time(gone);
    if (gone) {
      continue;
    }
    const std::uint64_t size = entry.file_size(gone);
    const fs::path& path = entry.path();
    if (path.filename().native().starts_with(TEMPORARY) && used < longAgo) {
      fs::remove(path, gone);
    } else if (path.extension() == ".list") {
      total += gone ? 0 : size;
      fs::path info = path;
      if (!fs::exists(info.replace_extension(".info"), gone) && used < longAgo) {
        fs::remove(path, gone);
      }
    } else if (path.extension() == ".info") {
      fs::path list = path;
      const std::uint64_t listSize = fs::file_size(list.replace_extension(".list"), gone);
      total += size;
      all.push_back({used, size + (gone ? 0 : listSize), path});
    }
  }
  std::sort(all.begin(), all.end(), [](const Kept& a, const Kept& b) { return a.used < b.used; });
  for (auto oldest = all.begin(); oldest != all.end() && total > maxSize_; ++oldest) {
    std::error_code ignored;
    fs::path list = oldest->path;
    fs::remove(oldest->path, ignored);
    fs::remove(list.replace_extension(".list"), ignored);
    total -= std::min(total, oldest->size);
  }
}

}  // namespace listing
