#include "report/PageWriter.h"

#include <algorithm>
#include <ostream>
#include <string_view>
#include <vector>

#include "report/Columns.h"
#include "report/PlainText.h"
#include "report/ReportError.h"

namespace report {

namespace {

constexpr std::string_view MARK = "<!-- columns -->";

void writeNumbers(std::ostream& out, std::string_view name, const std::vector<uint32_t>& values,
                  std::string_view encoding = "plain") {
  const uint32_t largest = values.empty() ? 0 : *std::max_element(values.begin(), values.end());
  const unsigned width = widthOf(largest);
  const std::string_view type = width == 1 ? "u8" : width == 2 ? "u16" : "u32";
  writeColumn(out, name, type, values.size(), encoding, planesOf(values, width));
}

template <typename Rows, typename Field>
void writeField(std::ostream& out, std::string_view name, const Rows& rows, const Field& field) {
  std::vector<uint32_t> values;
  values.reserve(rows.size());
  for (const auto& row : rows) {
    values.push_back(field(row));
  }
  writeNumbers(out, name, values);
}

// References of which some are NONE: 0 for those, else one more than the number.
uint32_t orZero(uint32_t reference) { return reference == NONE ? 0 : reference + 1; }

template <typename Rows, typename Field>
void writeTexts(std::ostream& out, std::string_view name, const Rows& rows, const Field& field) {
  std::string bytes;
  for (const auto& row : rows) {
    const std::string& text = field(row);
    // What the document spelt as an escape may be a zero byte, which ends a text here.
    std::replace_copy(text.begin(), text.end(), std::back_inserter(bytes), '\0', ' ');
    bytes += '\0';
  }
  writeColumn(out, name, "text", rows.size(), "plain", bytes);
}

uint64_t nanosecondsOfDigit(uint32_t digits) {
  uint64_t unit = 1;
  for (; digits < 9; ++digits) {
    unit *= 10;
  }
  return unit;
}

// Times in units of the last digit that the document shows, as differences.
void writeTimes(std::ostream& out, const Profile& profile) {
  const std::vector<int64_t>& times = profile.samples.times;
  const uint64_t unit = nanosecondsOfDigit(profile.timeDigits);
  std::vector<uint64_t> deltas;
  deltas.reserve(times.size());
  uint64_t largest = 0;
  for (std::size_t i = 0; i < times.size(); ++i) {
    const uint64_t delta =
        i == 0 ? 0 : (static_cast<uint64_t>(times[i]) - static_cast<uint64_t>(times[i - 1])) / unit;
    largest = std::max(largest, delta);
    deltas.push_back(delta);
  }
  const unsigned width = widthOf(largest);
  const std::string_view type = width == 1 ? "u8" : width == 2 ? "u16" : width == 4 ? "u32" : "u64";
  writeColumn(out, "sample.time", type, deltas.size(), "delta", planesOf(deltas, width));
}

void writeFacts(std::ostream& out, const Profile& profile, const RecordingFacts& facts) {
  std::string json = "{\"name\":";
  appendJsonString(json, facts.name);
  json += ",\"timeUnit\":" + std::to_string(nanosecondsOfDigit(profile.timeDigits));
  json += ",\"firstTime\":" +
          std::to_string(profile.samples.size() == 0 ? 0 : profile.samples.times.front());
  json += ",\"timelessSamples\":" + std::to_string(profile.timelessCount);
  if (!facts.baselineName.empty()) {
    json += ",\"baseline\":{\"name\":";
    appendJsonString(json, facts.baselineName);
    json += ",\"samples\":" + std::to_string(profile.baselineSamples) +
            ",\"seconds\":" + std::to_string(profile.baselineSeconds) + "}";
  }
  json += "}";
  writeColumn(out, "facts", "json", 1, "plain", json);
  if (!facts.qualityJson.empty()) {
    writeColumn(out, "quality", "json", 1, "plain", facts.qualityJson);
  }
  if (!facts.baselineQualityJson.empty()) {
    writeColumn(out, "baseline.quality", "json", 1, "plain", facts.baselineQualityJson);
  }
}

void writeColumns(std::ostream& out, const Profile& profile, const RecordingFacts& facts) {
  writeFacts(out, profile, facts);
  const auto name = [](const auto& row) -> const std::string& { return row.name; };
  writeTexts(out, "library.name", profile.libraries, name);
  writeField(out, "library.kind", profile.libraries,
             [](const Library& library) { return static_cast<uint32_t>(library.kind); });
  writeTexts(out, "file.name", profile.files,
             [](const std::string& file) -> const std::string& { return file; });
  writeTexts(out, "frame.name", profile.frames, name);
  writeField(out, "frame.library", profile.frames,
             [](const Frame& frame) { return frame.library; });
  writeField(out, "frame.file", profile.frames,
             [](const Frame& frame) { return orZero(frame.file); });
  writeField(out, "thread.pid", profile.threads,
             [](const ProfileThread& thread) { return orZero(thread.pid); });
  writeField(out, "thread.tid", profile.threads,
             [](const ProfileThread& thread) { return orZero(thread.tid); });
  writeTexts(out, "thread.name", profile.threads, name);
  writeTexts(out, "thread.process", profile.threads,
             [](const ProfileThread& thread) -> const std::string& { return thread.processName; });

  std::vector<uint32_t> frames;
  frames.reserve(profile.stacks.size());
  for (uint32_t node = 0; node < profile.stacks.size(); ++node) {
    frames.push_back(profile.stacks.frame(node));
  }
  writeNumbers(out, "stack.depth", profile.stacks.depths());
  writeNumbers(out, "stack.frame", frames);
  if (!facts.baselineName.empty()) {
    writeNumbers(out, "stack.baseline", profile.baselineCounts);
  }
  writeTimes(out, profile);
  writeNumbers(out, "sample.stack", profile.samples.stacks);
  writeNumbers(out, "sample.thread", profile.samples.threads);
  writeField(out, "sample.cpu", profile.samples.cpus, orZero);
}

}  // namespace

void writePage(std::ostream& out, const Profile& profile, const RecordingFacts& facts) {
  const std::string_view page = viewerTemplate();
  const std::size_t mark = page.find(MARK);
  if (mark == std::string_view::npos) {
    throw ReportError("The viewer that this program was built with has no place for columns.");
  }
  out << page.substr(0, mark);
  writeColumns(out, profile, facts);
  out << page.substr(mark + MARK.size());
}

}  // namespace report
