// What a walk hands over, one line for each record, so that a test can say what it expects.
//
//   comm 10/11 app, map 10/11 8000+1000@2000 /bin/app, fork 12/12 of 10/10, exit 12/12,
//   ksymbol 9000+40 bpf_prog, sample 0 8010 10/11 t6 cpu1 [8010 8020]
//
// Addresses, lengths and offsets are hexadecimal, times nanoseconds.
#pragma once

#include <string>
#include <vector>

#include "recordings/Recording.h"

class WalkLog : public recordings::RecordVisitor {
 public:
  bool wantsSamplesOf(std::uint32_t) override { return true; }
  void onSample(std::uint32_t event, const recordings::Sample& sample) override;
  void onMap(const recordings::MapRecord& map) override;
  void onComm(const recordings::CommRecord& comm) override;
  void onFork(const recordings::TaskRecord& task) override;
  void onExit(const recordings::TaskRecord& task) override;
  void onKsymbol(const recordings::KsymbolRecord& symbol) override;
  void onProgress(std::uint64_t, std::uint64_t) override {}

  const std::vector<std::string>& lines() const { return lines_; }

 private:
  std::vector<std::string> lines_;
};

// A recording in memory, and what a walk over it gave. Throws what the reader throws.
struct Walked {
  explicit Walked(std::string file,
                  recordings::TimeOrder::Trust trust = recordings::TimeOrder::Trust::ROUNDS);

  std::string bytes;
  recordings::Recording recording;
  recordings::WalkCounts counts;
  bool isInOrder = false;
  std::vector<std::string> lines;
};

inline recordings::Bytes asBytes(const std::string& text) {
  return recordings::Bytes(reinterpret_cast<const unsigned char*>(text.data()), text.size());
}
