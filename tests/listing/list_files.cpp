// Lists the files named as arguments, each `name[=build id]`, into the directory named first;
// prints a line for each: outcome, list, file, origin of the symbols, cure.
// `--kernel=START,END,REFERENCE,ADDRESS[,BUILDID]` (numbers in hexadecimal) lists that kernel, too,
// in a line at the end. For tests and for bench/names_agree.py.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "listing/Kernel.h"
#include "listing/Listing.h"

namespace {

listing::BuildId _bytesOf(const std::string& hex) {
  listing::BuildId id;
  for (std::size_t at = 0; at + 1 < hex.size(); at += 2) {
    id.push_back(static_cast<unsigned char>(std::stoi(hex.substr(at, 2), nullptr, 16)));
  }
  return id;
}

listing::File _fileOf(const std::string& argument) {
  listing::File file;
  const std::size_t equals = argument.rfind('=');
  file.name = argument.substr(0, equals);
  if (equals != std::string::npos) {
    file.buildId = _bytesOf(argument.substr(equals + 1));
  }
  constexpr std::string_view MAP = "/tmp/perf-";
  if (file.name == "[vdso]") {
    file.kind = listing::File::Kind::Vdso;
  } else if (file.name.starts_with(MAP)) {
    file.kind = listing::File::Kind::PerfMap;
    file.pid = static_cast<std::uint32_t>(std::atoi(file.name.c_str() + MAP.size()));
  }
  return file;
}

listing::Kernel _kernelOf(const std::string& argument) {
  std::vector<std::string> fields;
  for (std::size_t at = 0; at <= argument.size();) {
    const std::size_t comma = std::min(argument.find(',', at), argument.size());
    fields.push_back(argument.substr(at, comma - at));
    at = comma + 1;
  }
  fields.resize(5);
  listing::Kernel kernel;
  kernel.start = std::strtoull(fields[0].c_str(), nullptr, 16);
  kernel.end = std::strtoull(fields[1].c_str(), nullptr, 16);
  kernel.referenceName = fields[2];
  kernel.referenceAddress = std::strtoull(fields[3].c_str(), nullptr, 16);
  kernel.buildId = _bytesOf(fields[4]);
  return kernel;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "Usage: list_files DIRECTORY [--OPTION]... [FILE[=BUILDID]]...\n");
    return 1;
  }
  listing::Options options;
  options.sameMachine = true;
  std::vector<listing::File> files;
  std::string kernel;
  for (int i = 2; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument == "--no-cache") {
      options.cache = false;
    } else if (argument == "--no-lines") {
      options.lines = false;
    } else if (argument == "--no-demangle") {
      options.demangle = false;
    } else if (argument == "--parameters") {
      options.parameters = true;
    } else if (argument.starts_with("--sysroot=")) {
      options.sysroots = {argument.substr(10)};
    } else if (argument.starts_with("--debug-dir=")) {
      options.debugDirs.push_back(argument.substr(12));
    } else if (argument.starts_with("--kallsyms=")) {
      options.kallsyms = argument.substr(11);
    } else if (argument.starts_with("--vmlinux=")) {
      options.vmlinux = argument.substr(10);
    } else if (argument.starts_with("--kernel=")) {
      kernel = argument.substr(9);
    } else if (argument.starts_with("--jobs=")) {
      options.jobs = static_cast<unsigned>(std::atoi(argument.c_str() + 7));
    } else {
      files.push_back(_fileOf(argument));
    }
  }
  const std::vector<listing::Result> results = listing::listFiles(files, options, argv[1], {});
  for (const listing::Result& result : results) {
    std::printf("%d\t%s\t%s\t%s\t%s\n", static_cast<int>(result.outcome), result.list.c_str(),
                result.file.c_str(), result.symbolsFrom.c_str(), result.cure.c_str());
  }
  if (!kernel.empty()) {
    const listing::KernelResult result = listing::listKernel(_kernelOf(kernel), options, argv[1]);
    std::printf("%d\t%s\t%s\t%s\n", static_cast<int>(result.outcome), result.list.c_str(),
                result.source.c_str(), result.cure.c_str());
  }
  return 0;
}
