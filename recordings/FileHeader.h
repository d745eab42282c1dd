// The header of a perf.data file, in all its forms: where the records stand, in which byte order,
// and what the attributes and feature sections say. Of a pipe, attributes and features are records:
// addRecord() takes them as they come.
// Source: tools/perf/util/header.h, header.c.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "recordings/Facts.h"
#include "recordings/Input.h"
#include "recordings/RecordStream.h"

namespace recordings {

struct FileHeader {
  ByteOrder order = ByteOrder::NATIVE;
  RecordStream::Form form = RecordStream::Form::FILE;
  std::uint64_t dataBegin = 0;
  std::uint64_t dataEnd = 0;
  // perf did not live to write the size of the data, nor anything behind it.
  bool isUnfinished = false;
  std::vector<Event> events;
  std::map<std::uint64_t, std::uint32_t> eventOfId;  // index into `events`
  Facts facts;

  // Throws RecordingError when this is no recording, or one without any event.
  static FileHeader read(const Input& input);
  // Attributes, features and names that come as records, in a pipe or not. False if `record` is
  // none of these.
  bool addRecord(const Record& record);
  // What records define has come: names events that are still without one. Throws RecordingError
  // when there is no event.
  void finishEvents(const std::string& inputName);

 private:
  void _readAttributes(const Input& input, std::uint64_t entrySize, std::uint64_t offset,
                       std::uint64_t size);
  void _readFeatures(const Input& input, Bytes header);
  void _addAttribute(Bytes body);
  void _addEvent(Bytes attribute, Bytes ids);
  void _updateEvent(Bytes body);
};

}  // namespace recordings
