#include "tests/support/recordings/Features.h"

#include <string_view>

namespace made {

namespace {

constexpr std::size_t NAME_UNIT = 64;
constexpr uint16_t MISC_BUILD_ID_SIZE = 1 << 15;
constexpr uint32_t COMPRESSION_ZSTD = 1;
constexpr uint32_t RING_BYTES = 0x81000;

// A text with its length, padding included.
Fields counted(std::string_view text) {
  Fields padded;
  padded.text(text, NAME_UNIT);
  Fields fields;
  return fields.u32(static_cast<uint32_t>(padded.size())).append(padded);
}

Fields eventDescriptions(const Recording& recording, const Encoding& encoding,
                         const RecordEncoder& encoder) {
  Fields fields;
  fields.u32(static_cast<uint32_t>(recording.events.size()));
  fields.u32(static_cast<uint32_t>(encoding.attributeSize));
  for (std::size_t i = 0; i < recording.events.size(); ++i) {
    const bool hasIds = encoding.identification != Identification::NONE;
    const std::vector<uint64_t> ids = hasIds ? recording.idsOf(i) : std::vector<uint64_t>{};
    fields.bytes(encoder.attribute(recording.events[i])).u32(static_cast<uint32_t>(ids.size()));
    fields.append(counted(recording.events[i].name)).u64s(ids);
  }
  return fields;
}

Fields buildIds(const Recording& recording) {
  Fields fields;
  for (const FileBuildId& entry : recording.buildIds) {
    const Fields body = buildIdBody(entry);
    fields.u32(0).u16(buildIdMisc(entry)).u16(static_cast<uint16_t>(8 + body.size()));
    fields.append(body);
  }
  return fields;
}

}  // namespace

std::map<unsigned, Fields> featuresOf(const Recording& recording, const Encoding& encoding,
                                      const RecordEncoder& encoder) {
  std::map<unsigned, Fields> features;
  const auto addText = [&](unsigned feature, const std::string& text) {
    if (!text.empty()) {
      features[feature] = counted(text);
    }
  };
  if (!recording.buildIds.empty()) {
    features[Feature::BUILD_ID] = buildIds(recording);
  }
  addText(Feature::HOSTNAME, recording.hostname);
  addText(Feature::OSRELEASE, recording.osRelease);
  addText(Feature::ARCH, recording.architecture);
  if (!recording.commandLine.empty()) {
    Fields& words = features[Feature::CMDLINE];
    words.u32(static_cast<uint32_t>(recording.commandLine.size()));
    for (const std::string& word : recording.commandLine) {
      words.append(counted(word));
    }
  }
  features[Feature::EVENT_DESC] = eventDescriptions(recording, encoding, encoder);
  if (recording.sampleTime) {
    features[Feature::SAMPLE_TIME]
        .u64(recording.sampleTime->first)
        .u64(recording.sampleTime->second);
  }
  if (encoding.compression != Compression::NONE) {
    // Version, type, level, ratio, size of a buffer.
    features[Feature::COMPRESSED].u32(1).u32(COMPRESSION_ZSTD).u32(1).u32(1).u32(RING_BYTES);
  }
  if (const auto& clock = recording.clockData) {
    features[Feature::CLOCK_DATA].u32(1).u32(clock->clockid);
    features[Feature::CLOCK_DATA].u64(clock->wallNanoseconds).u64(clock->clockNanoseconds);
  }
  return features;
}

Fields buildIdBody(const FileBuildId& entry) {
  const std::string id = entry.id.substr(0, 20);
  Fields fields;
  fields.u32(static_cast<uint32_t>(entry.pid)).bytes(id).zeros(20 - id.size());
  return fields.u8(static_cast<uint8_t>(id.size())).zeros(3).text(entry.file, NAME_UNIT);
}

uint16_t buildIdMisc(const FileBuildId& entry) {
  return static_cast<uint16_t>(entry.mode) | MISC_BUILD_ID_SIZE;
}

}  // namespace made
