// One reusable object of every record class, each decoding with the layout of the file's first
// attribute: a file whose attributes differ gets a warning and is decoded regardless. Log:
// "PerfRecordEventDataStore".
#pragma once

#include <boost/ptr_container/ptr_vector.hpp>

#include "perfevents/PerfEventAttribute.h"
#include "perfevents/PerfEventDataStore.h"

namespace perfevents {

class PerfRecordEventDataStore : public PerfEventDataStore {
 public:
  // Borrows the list, which must outlive the store. Throws std::invalid_argument when it is empty.
  explicit PerfRecordEventDataStore(const boost::ptr_vector<PerfEventAttribute>& attributes);

  // Null, without a message, for a type outside 1 to 9 and for a body that its class refuses.
  PerfEventData* getEventData(PerfEventData::Type type, const kestrel::ByteBufferViewport& body,
                              PerfEventData::MiscFlags misc) override;

  // Whether records of the two attributes have the same layout. (The name is spelled so.)
  static bool areAtributesSimilar(const PerfEventAttribute& one, const PerfEventAttribute& other);

  // Makes the record objects; called by the constructor.
  void buildPerfEventDataParsers();

 private:
  void _warnOfDifferentLayouts() const;

  const boost::ptr_vector<PerfEventAttribute>& attributes_;
  boost::ptr_vector<PerfEventData> parsers_;  // the index is the Type
};

}  // namespace perfevents
