// Bundles: one archive (tar, zstd) of all that preparing a recording on another machine takes.
//
//   tracemill-bundle.json   first: {"version":1,"recording":NAME}
//   recording/NAME          the recording as it is: a file, or a folder of files
//   root/PATH               what the recorded machine has at /PATH: ELF files, perf maps, and debug
//                           files below usr/lib/debug
//   copies/.build-id/..     files that were found by their build ids only, as in perf's ~/.debug
//   kallsyms or vmlinux     the kernel's names
//   vdso                    the code that the kernel maps into every process
//   vdso32                  the same for programs of 32 bits
//
// Bundles come from anybody. What is unpacked are regular files and folders below the given folder,
// and nothing else: links, devices, absolute names, "..", names that come twice and sizes beyond
// reason are refused. Errors are thrown as PrepareError. One thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>

#include "kestrel/ReplacementFile.h"

struct archive;  // of libarchive

namespace prepare {

// Whether a regular file begins as a bundle does: no recording begins so.
bool isBundle(const std::string& path);

// Written under a temporary name, and put in its place at the end.
class BundleWriter {
 public:
  // Refuses a place where something else than a bundle stands.
  BundleWriter(const std::string& place, const std::string& recordingName);
  ~BundleWriter();
  BundleWriter(const BundleWriter&) = delete;
  BundleWriter& operator=(const BundleWriter&) = delete;

  // Names are paths in the archive; a name that is there already is not written again. False: the
  // file at `path` cannot be read, and is left out.
  bool addFile(const std::string& name, const std::string& path);
  bool has(const std::string& name) const { return names_.contains(name); }
  void commit();

  std::size_t files() const { return names_.size(); }
  std::uint64_t bytes() const { return bytes_; }  // of what is in it

 private:
  void _addText(const std::string& name, const std::string& text);
  void _begin(const std::string& name, std::uint64_t size);
  void _put(const char* bytes, std::size_t count);
  [[noreturn]] void _fail() const;

  std::string place_;
  kestrel::ReplacementFile file_;
  archive* archive_ = nullptr;
  std::set<std::string> names_;
  std::uint64_t bytes_ = 0;
};

// An unpacked bundle.
struct Bundle {
  std::string folder;     // holds all of it
  std::string recording;  // file or folder
  std::string root() const { return folder + "/root"; }
  std::string copies() const { return folder + "/copies"; }
  std::string kallsyms() const { return folder + "/kallsyms"; }
  std::string vmlinux() const { return folder + "/vmlinux"; }
  std::string vdso() const { return folder + "/vdso"; }
  std::string vdso32() const { return folder + "/vdso32"; }

  static constexpr int VERSION = 1;
  static constexpr const char* MANIFEST = "tracemill-bundle.json";
  // Unpacked: at most this, and at most so many times the bundle's own size and a little more.
  static constexpr std::uint64_t MOST_BYTES = std::uint64_t{64} << 30;
  static constexpr std::uint64_t MOST_TIMES = 256;
  static constexpr std::uint64_t LITTLE_MORE = std::uint64_t{64} << 20;
  static constexpr std::size_t MOST_ENTRIES = 1000000;

  // Into `folder`, which is made. With `recordingOnly`, what is below recording/ and nothing else.
  static Bundle unpack(const std::string& path, const std::string& folder, bool recordingOnly);
};

}  // namespace prepare
