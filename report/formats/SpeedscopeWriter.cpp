#include "report/formats/SpeedscopeWriter.h"

#include <algorithm>
#include <numeric>
#include <ostream>
#include <vector>

#include "report/PlainText.h"
#include "report/formats/StackCounts.h"

namespace report {

namespace {

std::string seconds(int64_t nanoseconds) {
  std::string text = std::to_string(nanoseconds / 1000000000);
  std::string fraction = std::to_string(nanoseconds % 1000000000 + 1000000000);
  return text + "." + fraction.substr(1);
}

// What a sample stands for, when nothing comes soon: the median distance of a thread's samples.
int64_t medianDistance(const std::vector<int64_t>& times) {
  std::vector<int64_t> distances;
  for (std::size_t i = 1; i < times.size(); ++i) {
    distances.push_back(times[i] - times[i - 1]);
  }
  if (distances.empty()) {
    return 1000000;  // a single sample: a millisecond, so that it is seen
  }
  const auto middle = distances.begin() + static_cast<std::ptrdiff_t>(distances.size() / 2);
  std::nth_element(distances.begin(), middle, distances.end());
  return std::max<int64_t>(*middle, 1);
}

void writeStack(std::ostream& out, const Profile& profile, uint32_t stack) {
  const std::vector<uint32_t> frames = framesOf(profile, stack);
  const char* separator = "";
  out << '[';
  for (auto frame = frames.rbegin(); frame != frames.rend(); ++frame) {
    out << separator << *frame;
    separator = ",";
  }
  out << ']';
}

void writeThread(std::ostream& out, const Profile& profile, const ProfileThread& thread,
                 const std::vector<uint32_t>& samples, int64_t start) {
  std::vector<int64_t> times;
  for (const uint32_t sample : samples) {
    times.push_back(profile.samples.times[sample] - start);
  }
  const int64_t usual = medianDistance(times);
  std::string weights;
  out << "{\"type\":\"sampled\",\"name\":"
      << quotedJson(titleOf(thread.name) + " " +
                    (thread.tid == NONE ? "unknown" : std::to_string(thread.tid)))
      << ",\"unit\":\"seconds\",\"startValue\":" << seconds(times.front()) << ",\"samples\":[";
  int64_t end = times.front();
  for (std::size_t i = 0; i < samples.size(); ++i) {
    const int64_t next = i + 1 < samples.size() ? times[i + 1] : times[i] + usual;
    const int64_t distance = next - times[i];
    const int64_t weight = distance > usual + usual / 2 ? usual : distance;
    out << (i == 0 ? "" : ",");
    writeStack(out, profile, profile.samples.stacks[samples[i]]);
    weights += (i == 0 ? "" : ",") + seconds(weight);
    if (weight < distance) {
      out << ",[]";
      weights += "," + seconds(distance - weight);
    }
    end = next;
  }
  out << "],\"weights\":[" << weights << "],\"endValue\":" << seconds(end) << "}";
}

}  // namespace

void writeSpeedscope(std::ostream& out, const Profile& profile, const RecordingFacts& facts) {
  out << R"({"$schema":"https://www.speedscope.app/file-format-schema.json","exporter":"tracemill-report","name":)"
      << quotedJson(facts.name) << ",\"activeProfileIndex\":0,\"shared\":{\"frames\":[";
  const char* separator = "";
  for (const Frame& frame : profile.frames) {
    const std::string& file =
        frame.file == NONE ? profile.libraries[frame.library].name : profile.files[frame.file];
    out << separator << "{\"name\":" << quotedJson(frame.name) << ",\"file\":" << quotedJson(file)
        << "}";
    separator = ",";
  }
  out << "]},\"profiles\":[";
  std::vector<std::vector<uint32_t>> samplesOfThread(profile.threads.size());
  for (uint32_t i = 0; i < profile.samples.size(); ++i) {
    samplesOfThread[profile.samples.threads[i]].push_back(i);
  }
  std::vector<std::size_t> order(profile.threads.size());
  std::iota(order.begin(), order.end(), 0);
  std::stable_sort(order.begin(), order.end(), [&](std::size_t left, std::size_t right) {
    return samplesOfThread[left].size() > samplesOfThread[right].size();
  });
  const int64_t start = profile.samples.size() == 0 ? 0 : profile.samples.times.front();
  separator = "";
  for (const std::size_t thread : order) {
    out << separator;
    writeThread(out, profile, profile.threads[thread], samplesOfThread[thread], start);
    separator = ",";
  }
  out << "]}\n";
}

}  // namespace report
