#include "report/formats/PprofWriter.h"

#include <algorithm>
#include <numeric>
#include <ostream>
#include <string>
#include <unordered_map>
#include <vector>

#include "report/Columns.h"
#include "report/QualityFacts.h"
#include "report/formats/StackCounts.h"
#include "report/formats/profile.pb.h"

namespace report {

namespace {

namespace pprof = perftools::profiles;

class StringTable {
 public:
  explicit StringTable(pprof::Profile& profile) : profile_(profile) { of(""); }

  int64_t of(const std::string& text) {
    const auto [place, isNew] = numbers_.try_emplace(text, profile_.string_table_size());
    if (isNew) {
      profile_.add_string_table(text);
    }
    return place->second;
  }

 private:
  pprof::Profile& profile_;
  std::unordered_map<std::string, int64_t> numbers_;
};

// The program that most samples fell into; the first library where there is no program.
std::size_t mainProgram(const Profile& profile) {
  std::vector<std::size_t> counts(profile.libraries.size(), 0);
  for (const uint32_t stack : profile.samples.stacks) {
    const uint32_t library = profile.frames[profile.stacks.frame(stack)].library;
    counts[library] += profile.libraries[library].kind == LibraryKind::PROGRAM;
  }
  return static_cast<std::size_t>(std::max_element(counts.begin(), counts.end()) - counts.begin());
}

void addMapping(pprof::Profile& result, StringTable& strings, const Profile& profile,
                std::size_t library) {
  pprof::Mapping& mapping = *result.add_mapping();
  mapping.set_id(library + 1);
  mapping.set_filename(strings.of(profile.libraries[library].name));
  mapping.set_has_functions(true);
}

void addFunctions(pprof::Profile& result, StringTable& strings, const Profile& profile) {
  // Those who read it take the first mapping for the main program (profile.proto).
  const std::size_t main = mainProgram(profile);
  if (main < profile.libraries.size()) {
    addMapping(result, strings, profile, main);
  }
  for (std::size_t i = 0; i < profile.libraries.size(); ++i) {
    if (i != main) {
      addMapping(result, strings, profile, i);
    }
  }
  for (std::size_t i = 0; i < profile.frames.size(); ++i) {
    const Frame& frame = profile.frames[i];
    pprof::Function& function = *result.add_function();
    function.set_id(i + 1);
    function.set_name(strings.of(frame.name));
    function.set_system_name(function.name());
    function.set_filename(strings.of(frame.file == NONE ? "" : profile.files[frame.file]));
    pprof::Location& location = *result.add_location();
    location.set_id(i + 1);
    location.set_mapping_id(frame.library + 1);
    location.add_line()->set_function_id(i + 1);
  }
}

void addLabel(pprof::Sample& sample, StringTable& strings, const char* key,
              const std::string& text) {
  if (!text.empty()) {
    pprof::Label& label = *sample.add_label();
    label.set_key(strings.of(key));
    label.set_str(strings.of(text));
  }
}

void addNumber(pprof::Sample& sample, StringTable& strings, const char* key, uint32_t number) {
  if (number != NONE) {
    pprof::Label& label = *sample.add_label();
    label.set_key(strings.of(key));
    label.set_num(number);
  }
}

}  // namespace

void writePprof(std::ostream& out, const Profile& profile, const RecordingFacts& facts) {
  pprof::Profile result;
  StringTable strings(result);
  pprof::ValueType& type = *result.add_sample_type();
  type.set_type(strings.of("samples"));
  type.set_unit(strings.of("count"));
  addFunctions(result, strings, profile);
  std::vector<uint32_t> threads(profile.threads.size());
  std::iota(threads.begin(), threads.end(), 0);
  for (const StackCount& row : countStacks(profile, threads)) {
    pprof::Sample& sample = *result.add_sample();
    for (const uint32_t frame : framesOf(profile, row.stack)) {
      sample.add_location_id(frame + 1);
    }
    sample.add_value(static_cast<int64_t>(row.count));
    const ProfileThread& thread = profile.threads[row.group];
    addLabel(sample, strings, "process", thread.processName);
    addLabel(sample, strings, "thread", thread.name);
    addNumber(sample, strings, "pid", thread.pid);
    addNumber(sample, strings, "tid", thread.tid);
  }
  if (profile.samples.size() > 0) {
    result.set_duration_nanos(profile.samples.times.back() - profile.samples.times.front());
  }
  const std::string command = commandLineOf(facts.qualityJson);
  if (!command.empty()) {
    result.add_comment(strings.of(command));
  }
  out << compressed(result.SerializeAsString());
}

}  // namespace report
