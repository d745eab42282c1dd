// A whole conversion as the format's description has it, step by step and value by value: the
// expected document and the expected use counts for recordings that are too wild to be worked out
// by hand. Shares no code with the program.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tests/app/ExpectedDocument.h"
#include "tests/app/PlainStores.h"
#include "tests/app/RandomRecording.h"

struct PlainSettings {
  uint32_t maxBackTrace = 16;
  uint32_t timePrecision = 6;
  bool whitespace = false;
  double clockStart = 0;
  double duration = 0;
  double skew = 1;
  double offset = 0;
  double base = 0;
  std::vector<PlainSymbol> kernel{};  // the kernel's symbol list; empty: there is none
};

// What the conversion came across, to tell whether it was as wild as it should be.
struct PlainTally {
  unsigned samples = 0;
  unsigned madeUp = 0;
  unsigned functionUses = 0;
  unsigned sharedStarts = 0;   // maps that begin where the map before begins
  unsigned foreignOwners = 0;  // made-up maps that another process than the thread's got
  unsigned shadowedLater = 0;  // addresses whose map is another one at the end
  // Which of a row's values forced line feeds stood before: 0 the row itself, 1 to 7 its numbers, 8
  // the back trace, 9 to 11 an entry of it and its numbers.
  std::set<unsigned> breaks{};
};

class PlainConversion {
 public:
  // The files that exist, with what a lister prints for them: in ascending order of addresses, each
  // address once.
  PlainConversion(const PlainSettings& settings,
                  std::map<std::string, std::vector<PlainSymbol>> files);

  void convert(const std::vector<Event>& events);

  const ExpectedDocument& document() const { return document_; }
  const PlainTally& tally() const { return tally_; }
  const std::map<uint32_t, PlainThread>& threads() const { return threads_; }
  const std::map<std::string, PlainTable>& tables() const { return tables_; }
  PlainMap& kernelMap() { return kernelMap_; }
  // Null if no map of the process is found for the address.
  PlainMap* mapAt(uint32_t pid, uint64_t address);

 private:
  void _loadKernel();
  PlainThread& _threadOf(uint32_t pid, uint32_t tid);
  void _addComm(const CommEvent& comm);
  void _addMap(const MapEvent& record);
  PlainMap& _madeUpAt(uint32_t pid, uint64_t address, const std::string& process);
  PlainItem& _resolve(PlainThread& thread, uint64_t address);
  void _lookBack();
  PlainTable& _tableOf(PlainMap& map);
  void _fillTable(PlainTable& table, const std::vector<PlainSymbol>& symbols);
  bool _isInWindow(double dataTime, double& clockTime);
  std::string _timeText(double time) const;

  void _writeSample(const SampleFields& sample);
  void _noteBreak(unsigned before, unsigned place);
  void _openAt(unsigned place);
  void _writeAt(unsigned place, const std::string& text);
  void _writeText(const std::string& text);
  void _writeLibraries();
  void _writeLibrary(uint32_t pid, const PlainMap& map);
  void _writeFunctions();
  void _writeProcesses();
  void _writeFiles();

  PlainSettings settings_;
  std::map<std::string, std::vector<PlainSymbol>> files_;
  ExpectedDocument document_;
  PlainTally tally_;

  uint64_t nextKey_ = 0;
  uint64_t kernelStart_ = 0xBF000000;
  uint64_t kernelEnd_ = 0xCF000000;
  PlainMap kernelMap_;
  PlainMap stackMap_;
  std::map<uint32_t, PlainThread> threads_;
  std::map<uint32_t, PlainStore<PlainMap>> maps_;
  std::map<std::string, PlainTable> tables_;
  std::map<std::string, std::string> locations_;
  std::map<std::string, std::vector<const PlainFunction*>> sources_;
  std::map<std::pair<uint32_t, uint64_t>, uint64_t> answers_;  // the first answer's key

  double dataStart_ = 0;
  double dataEnd_ = 0;
  double reference_ = 0;
};
