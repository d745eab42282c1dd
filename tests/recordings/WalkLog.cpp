#include "tests/recordings/WalkLog.h"

#include <cstdio>
#include <memory>
#include <utility>

using recordings::hexText;

namespace {

std::string hex(std::uint64_t number) {
  char text[20];
  std::snprintf(text, sizeof text, "%llx", static_cast<unsigned long long>(number));
  return text;
}

std::string ids(std::uint32_t pid, std::uint32_t tid) {
  return std::to_string(static_cast<std::int32_t>(pid)) + "/" +
         std::to_string(static_cast<std::int32_t>(tid));
}

}  // namespace

void WalkLog::onSample(std::uint32_t event, const recordings::Sample& sample) {
  std::string line = "sample " + std::to_string(event) + " " + hex(sample.ip) + " " +
                     ids(sample.pid, sample.tid) + " t" + std::to_string(sample.time) + " cpu" +
                     std::to_string(sample.cpu);
  if (sample.chainLength() > 0) {
    line += " [";
    for (std::size_t i = 0; i < sample.chainLength(); ++i) {
      line += (i > 0 ? " " : "") + hex(sample.chainWord(i));
    }
    line += "]";
  }
  lines_.push_back(line);
}

void WalkLog::onMap(const recordings::MapRecord& map) {
  std::string line = "map " + ids(map.pid, map.tid) + " " + hex(map.start) + "+" + hex(map.length) +
                     "@" + hex(map.pageOffset) + " " + map.name;
  line += map.isOfKernel() ? " kernel" : "";
  line += map.isData() ? " data" : "";
  line += map.buildId.empty() ? "" : " id " + hexText(map.buildId);
  lines_.push_back(line);
}

void WalkLog::onComm(const recordings::CommRecord& comm) {
  lines_.push_back("comm " + ids(comm.pid, comm.tid) + " " + comm.name +
                   (comm.isExec ? " exec" : ""));
}

void WalkLog::onFork(const recordings::TaskRecord& task) {
  lines_.push_back("fork " + ids(task.pid, task.tid) + " of " +
                   ids(task.parentPid, task.parentTid) + (task.isMadeByPerf ? " by perf" : ""));
}

void WalkLog::onExit(const recordings::TaskRecord& task) {
  lines_.push_back("exit " + ids(task.pid, task.tid));
}

void WalkLog::onKsymbol(const recordings::KsymbolRecord& symbol) {
  lines_.push_back("ksymbol " + hex(symbol.start) + "+" + hex(symbol.length) + " " + symbol.name +
                   (symbol.isRemoved ? " removed" : ""));
}

Walked::Walked(std::string file, recordings::TimeOrder::Trust trust)
    : bytes(std::move(file)), recording(std::make_unique<recordings::MemoryInput>(asBytes(bytes))) {
  WalkLog log;
  isInOrder = recording.walk(log, trust, "/tmp", counts);
  lines = log.lines();
}
