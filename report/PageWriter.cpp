#include "report/PageWriter.h"

#include <algorithm>
#include <future>
#include <ostream>
#include <string_view>
#include <vector>

#include "report/Columns.h"
#include "report/PlainText.h"
#include "report/ReportError.h"

namespace report {

namespace {

constexpr std::string_view MARK = "<!-- columns -->";

// A column in words of a page: made in one thread, written in another.
struct Column {
  std::string_view name;
  std::string_view type;
  std::size_t count;
  std::string_view encoding;
  std::string text;
};

void write(std::ostream& out, const Column& column) {
  writeColumn(out, column.name, column.type, column.count, column.encoding, column.text);
}

template <typename ValueAt>
Column numbers(std::string_view name, std::size_t count, const ValueAt& valueAt,
               std::string_view encoding = "plain") {
  uint64_t largest = 0;
  for (std::size_t i = 0; i < count; ++i) {
    largest = std::max<uint64_t>(largest, valueAt(i));
  }
  const unsigned width = widthOf(largest);
  const std::string_view type = width == 1 ? "u8" : width == 2 ? "u16" : width == 4 ? "u32" : "u64";
  return {name, type, count, encoding, encodePlanes(count, width, valueAt)};
}

Column numbers(std::string_view name, const std::vector<uint32_t>& values) {
  return numbers(name, values.size(), [&values](std::size_t i) { return values[i]; });
}

void writeText(std::ostream& out, std::string_view name, std::string_view type, std::size_t count,
               std::string_view bytes) {
  EncodedText text;
  text.add(bytes);
  writeColumn(out, name, type, count, "plain", text.finish());
}

template <typename Rows, typename Field>
void writeField(std::ostream& out, std::string_view name, const Rows& rows, const Field& field) {
  write(out, numbers(name, rows.size(), [&](std::size_t i) { return field(rows[i]); }));
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
  writeText(out, name, "text", rows.size(), bytes);
}

uint64_t nanosecondsOfDigit(uint32_t digits) {
  uint64_t unit = 1;
  for (; digits < 9; ++digits) {
    unit *= 10;
  }
  return unit;
}

// Times in units of the last digit that the document shows, as differences.
Column timesOf(const Profile& profile) {
  const std::vector<int64_t>& times = profile.samples.times;
  const uint64_t unit = nanosecondsOfDigit(profile.timeDigits);
  const auto difference = [&times, unit](std::size_t i) -> uint64_t {
    return i == 0 ? 0
                  : (static_cast<uint64_t>(times[i]) - static_cast<uint64_t>(times[i - 1])) / unit;
  };
  return numbers("sample.time", times.size(), difference, "delta");
}

// The times take as long as the rest: they are made in a thread of their own where there is one.
void writeSamples(std::ostream& out, const Profile& profile) {
  const SampleColumns& samples = profile.samples;
  std::future<Column> times = std::async([&profile] { return timesOf(profile); });
  const Column stacks = numbers("sample.stack", samples.stacks);
  const Column threads = numbers("sample.thread", samples.threads);
  write(out, times.get());
  write(out, stacks);
  write(out, threads);
  writeField(out, "sample.cpu", samples.cpus, orZero);
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
  writeText(out, "facts", "json", 1, json);
  if (!facts.qualityJson.empty()) {
    writeText(out, "quality", "json", 1, facts.qualityJson);
  }
  if (!facts.baselineQualityJson.empty()) {
    writeText(out, "baseline.quality", "json", 1, facts.baselineQualityJson);
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

  const StackTree& tree = profile.stacks;
  write(out, numbers("stack.depth", tree.depths()));
  write(out, numbers("stack.frame", tree.size(),
                     [&tree](std::size_t i) { return tree.frame(static_cast<uint32_t>(i)); }));
  if (!facts.baselineName.empty()) {
    write(out, numbers("stack.baseline", profile.baselineCounts));
  }
  writeSamples(out, profile);
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
