// What the converter reads besides the recording: a symbol cache that is complete (so that it lists
// nothing itself), a stand-in for each mapped file (it asks no list for a file that is not there),
// and a configuration that names everything. One thread.
//
//   files/...        empty stand-ins, by the names of the maps
//   symbols/         symbolcache.json and the lists
//   kallsyms         the kernel's list, if it has one
//   tracemill.conf
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>

#include "prepare/PreparedFolder.h"

namespace prepare {

class ConverterFiles {
 public:
  explicit ConverterFiles(const PreparedFolder& folder);

  // The name under which a map is written, and found by the converter, so that no two of `identity`
  // share one: the map's own, spelled so that the converter takes it as it is.
  std::string nameOf(const std::string& mapName);
  // The list of that written name; a path in the folder for lists.
  void addList(const std::string& writtenName, const std::string& listPath);
  // The same with the list's text; gives the path that it is written to.
  std::string addListText(const std::string& writtenName, const std::string& text);
  // The kernel's list becomes KERNEL_LIST; gives its new path.
  std::string addKernelList(const std::string& listPath);
  // Where lists are to be put.
  std::string listFolder() const { return folder_.workPath(LISTS); }

  struct Settings {
    bool hasKernelList = false;
    std::size_t maxBackTrace = 0;
  };
  // Writes index and configuration.
  void finish(const Settings& settings);

  static constexpr char RECORDING[] = "perf.data";
  static constexpr char KERNEL_LIST[] = "kallsyms";

 private:
  static constexpr char LISTS[] = "symbols";
  static constexpr char STAND_INS[] = "files";

  struct List {
    std::string file;  // in the folder of lists
    std::uint64_t size;
  };
  void _makeStandIn(const std::string& writtenName) const;
  void _writeIndex() const;

  const PreparedFolder& folder_;
  std::set<std::string> names_;
  std::map<std::string, std::uint64_t> spellings_;  // tried so far, by name
  std::map<std::string, List> lists_;               // by written name
};

}  // namespace prepare
