// A reader of the files that perf writes.
#pragma once

#include <cstdint>
#include <fstream>
#include <map>
#include <string>

#include <boost/ptr_container/ptr_vector.hpp>

#include "perfevents/PerfEventAttribute.h"

namespace perfevents {

class PerfEventDataListener;

class PerfOutputReader {
 public:
  // Borrows the stream, which must stay alive and open.
  explicit PerfOutputReader(std::ifstream& stream) : fileStream_(stream) {}
  PerfOutputReader(const PerfOutputReader&) = delete;
  PerfOutputReader& operator=(const PerfOutputReader&) = delete;
  virtual ~PerfOutputReader() = default;

  // Hands every record of the file to the listener.
  virtual void parseEvents(PerfEventDataListener& listener) = 0;
  // The attributes in file order.
  virtual const boost::ptr_vector<PerfEventAttribute>& getAttributes() const = 0;
  // Event id to name.
  virtual const std::map<uint64_t, std::string>& getTraceEventTypes() const = 0;
  // Empty for an id without a name.
  virtual const std::string& getTraceEventName(uint64_t id) const = 0;

 protected:
  std::ifstream& fileStream_;
};

}  // namespace perfevents
