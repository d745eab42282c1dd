// Conversions of a recording of two processes that map one program and one library, with a fake
// symbol lister, in a folder that holds:
//
//   bin/app, lib/libx.so            what is mapped, with fixed modification times
//   bin/app.list, lib/libx.so.list  what the lister prints for them
//   lister                          the lister; it notes each of its runs in runs.txt
#pragma once

#include <ctime>
#include <string>

#include "tests/app/Conversion.h"
#include "tests/app/Recordings.h"

inline constexpr std::time_t APP_TIME = 1'400'000'000;
inline constexpr std::time_t LIBRARY_TIME = 1'400'000'001;

// What the lister prints. Lines of other types, mapping symbols and undefined symbols are no
// functions; the last function has size 1.
extern const std::string APP_LIST;
extern const std::string LIBRARY_LIST;

PerfFileBuilder symbolRecording();

class SymbolRun {
 public:
  explicit SymbolRun(const PerfFileBuilder& recording = symbolRecording());

  Conversion& conversion() { return conversion_; }
  const TempDir& folder() const { return conversion_.folder(); }

  // A file that may be mapped, its lister output and its modification time.
  void addFile(const std::string& name, const std::string& list, std::time_t modified) const;
  void touch(const std::string& name, std::time_t modified) const;
  // Replaces the lister by a script with these lines; "$2" is the file to list.
  void replaceLister(const std::string& lines) const;

  // Converts; the run must succeed.
  ConversionResult run() const;
  // The arguments of the lister's runs since the last call, a line each.
  std::string takeListerRuns() const;
  // The names in the cache directory, sorted, each followed by a blank.
  std::string cacheNames() const;

 private:
  Conversion conversion_;
};

// The index entries of the two files as a cold run writes them.
std::string appEntry();
std::string libraryEntry();
