// Lists kept between runs, `<directory>/lists/<key>.list`, each with `<key>.info`: what it was made
// from, and what came of it. Files are written whole under other names and renamed, the .info last,
// so that runs at the same time see an entry or none. What is least recently used goes when the
// lists together become larger than the bound. One thread a object; any number of processes on a
// directory. Nothing is kept where the directory cannot be written.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "listing/File.h"

namespace listing {

class ListCache {
 public:
  struct Entry {
    Outcome outcome = Outcome::Failed;
    std::string symbolsFrom;
    std::string list;  // path; empty: nothing to list was found
  };

  // Makes the directory. Empty: keeps nothing.
  ListCache(const std::string& directory, std::uint64_t maxSize);

  // `source` is all that the list was made from, any text: an entry of another one is no hit.
  std::optional<Entry> find(const std::string& source);
  // A path on the file system of the cache to write a list to; empty if nothing can be kept.
  std::string temporaryPath();
  // Keeps the list at a temporary path (empty: none), which is there no more afterwards. Its new
  // path, empty if it could not be kept.
  std::string store(const std::string& source, const Entry& entry);
  // Removes what is too much, and files that runs left when they died.
  void trim();

 private:
  std::string _pathOf(const std::string& source) const;  // without suffix

  std::string directory_;
  std::uint64_t maxSize_;
  unsigned temporaries_ = 0;
};

}  // namespace listing
