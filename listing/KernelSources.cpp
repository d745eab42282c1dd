#include "listing/KernelSources.h"

#include <charconv>
#include <optional>
#include <string_view>
#include <sys/utsname.h>
#include <utility>

#include "listing/Kallsyms.h"
#include "listing/RegularFile.h"

namespace listing {

namespace {

constexpr std::size_t MAX_LIST = std::size_t{256} << 20;
constexpr std::size_t MAX_NOTES = 1 << 16;
constexpr char OWN_LIST[] = "/proc/kallsyms";

bool _isBigEndianHere() {
  const std::uint16_t one = 1;
  return *reinterpret_cast<const unsigned char*>(&one) == 0;
}

BuildId _runningBuildId() {
  const std::optional<RegularFile> notes = RegularFile::open("/sys/kernel/notes");
  return notes ? findBuildId(notes->readText(MAX_NOTES), _isBigEndianHere()).value_or(BuildId())
               : BuildId();
}

class SourceSearch {
 public:
  SourceSearch(const Kernel& kernel, const Options& options, const std::function<bool()>& takeKept)
      : kernel_(kernel),
        options_(options),
        takeKept_(takeKept),
        copies_(options.effectivePerfBuildIdDir()) {}

  KernelSource find() {
    if (!options_.kallsyms.empty()) {
      _tryKallsyms(options_.kallsyms);
    } else if (!options_.vmlinux.empty()) {
      _tryVmlinux(RegularFile::open(options_.vmlinux), options_.vmlinux, false);
    } else {
      [[maybe_unused]] const bool isFound =
          (!kernel_.kallsymsBeside.empty() && _tryKallsyms(kernel_.kallsymsBeside)) ||
          _tryKnownVmlinux() || _tryRunning() || _tryCopy();
    }
    return std::move(source_);
  }

 private:
  bool _tryKallsyms(const std::string& path) {
    source_.searched.push_back(path);
    const std::optional<RegularFile> file = RegularFile::open(path);
    std::string text = file ? file->readText(MAX_LIST) : std::string();
    const Kallsyms list = Kallsyms::parse(text);
    source_.isRestricted |= list.isRestricted;
    if (list.entries.empty()) {
      return false;
    }
    source_.kind = KernelSource::Kind::Kallsyms;
    source_.path = path;
    source_.text = std::move(text);
    return true;
  }

  bool _tryVmlinux(const std::optional<RegularFile>& file, const std::string& path, bool onlyById) {
    source_.searched.push_back(path);
    const std::optional<Layout> layout = file ? readLayout(*file) : std::nullopt;
    if (!layout || !layout->hasSymbolTable) {
      return false;
    }
    const bool isKnown = !kernel_.buildId.empty() && !layout->buildId.empty();
    if (isKnown ? !isSameBuildId(kernel_.buildId, layout->buildId) : onlyById) {
      source_.isDifferent |= isKnown;
      return false;
    }
    source_.kind = KernelSource::Kind::Vmlinux;
    source_.path = file->path();
    return true;
  }

  // perf's places; those of another machine's files below the sysroots.
  bool _tryKnownVmlinux() {
    const std::string hex = hexText(kernel_.buildId);
    if (hex.size() <= 2) {
      return false;
    }
    const std::string byId = "/.build-id/" + hex.substr(0, 2) + '/' + hex.substr(2);
    if (!copies_.empty() &&
        _tryVmlinux(RegularFile::open(copies_ + byId + "/elf"), copies_ + byId + "/elf", true)) {
      return true;
    }
    for (const std::string& root : options_.sysroots) {
      for (const std::string& name :
           {"/boot/vmlinux-" + kernel_.release, "/usr/lib/debug/boot/vmlinux-" + kernel_.release,
            "/lib/modules/" + kernel_.release + "/build/vmlinux",
            "/usr/lib/debug/lib/modules/" + kernel_.release + "/vmlinux",
            "/usr/lib/debug/boot/vmlinux-" + kernel_.release + ".debug",
            "/usr/lib/debug" + byId + ".debug"}) {
        if (_tryVmlinux(RegularFile::openBelow(root, name), root == "/" ? name : root + name,
                        true)) {
          return true;
        }
      }
    }
    return false;
  }

  bool _isRunningKernel() const {
    if (!kernel_.buildId.empty()) {
      return isSameBuildId(kernel_.buildId, _runningBuildId());
    }
    utsname name;
    return kernel_.sameMachine ||
           (!kernel_.release.empty() && ::uname(&name) == 0 && kernel_.release == name.release);
  }

  bool _tryRunning() {
    if (!_isRunningKernel()) {
      source_.searched.emplace_back("/proc/kallsyms (another kernel's)");
      return false;
    }
    if (takeKept_()) {
      source_.searched.emplace_back(OWN_LIST);
      source_.kind = KernelSource::Kind::Kept;
      source_.path = OWN_LIST;
      source_.isRunning = true;
    } else {
      source_.isRunning = _tryKallsyms(OWN_LIST);
    }
    return source_.isRunning;
  }

  bool _tryCopy() {
    return !copies_.empty() && !kernel_.buildId.empty() &&
           _tryKallsyms(copies_ + "/[kernel.kallsyms]/" + hexText(kernel_.buildId) + "/kallsyms");
  }

  const Kernel& kernel_;
  const Options& options_;
  const std::function<bool()>& takeKept_;
  std::string copies_;
  KernelSource source_;
};

}  // namespace

KernelSource findKernelSource(const Kernel& kernel, const Options& options,
                              const std::function<bool()>& takeKept) {
  return SourceSearch(kernel, options, takeKept).find();
}

// Lines of name, size, users, dependents, state and address.
std::uint64_t runningModuleStart(const std::string& name) {
  static const std::string modules = [] {
    const std::optional<RegularFile> file = RegularFile::open("/proc/modules");
    return '\n' + (file ? file->readText(MAX_LIST) : std::string());
  }();
  const std::string begin =
      '\n' + name.substr(1, name.size() - std::min<std::size_t>(name.size(), 2)) + ' ';
  const std::size_t line = modules.find(begin);
  if (line == std::string::npos) {
    return 0;
  }
  const std::size_t end = modules.find('\n', line + 1);
  const std::size_t address = modules.rfind(" 0x", end);
  std::uint64_t start = 0;
  if (address != std::string::npos && address > line) {
    std::from_chars(modules.data() + address + 3, modules.data() + modules.size(), start, 16);
  }
  return start;
}

}  // namespace listing
