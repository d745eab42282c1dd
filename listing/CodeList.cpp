#include "listing/CodeList.h"

#include <deque>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "kestrel/FileUtils.h"
#include "listing/Demangler.h"
#include "listing/JitDump.h"
#include "listing/PerfMap.h"
#include "listing/RegularFile.h"

namespace listing {

namespace {

constexpr std::size_t MAX_MAP = std::size_t{1} << 30;
constexpr std::size_t MAX_STATUS = 1 << 16;

// The id that the process has for itself: the last one of "NSpid:" in its status.
std::string _innermostId(const std::string& process) {
  const std::optional<RegularFile> file = RegularFile::open(process + "/status");
  const std::string status = file ? file->readText(MAX_STATUS) : std::string();
  const std::size_t line = status.find("\nNSpid:");
  if (line == std::string::npos) {
    return {};
  }
  const std::string_view ids =
      std::string_view(status).substr(line + 1, status.find('\n', line + 1) - line - 1);
  const std::size_t last = ids.find_last_of(" \t");
  return last == std::string_view::npos ? std::string() : std::string(ids.substr(last + 1));
}

class MapSearch {
 public:
  explicit MapSearch(CodeListReply& reply) : reply_(reply) {}

  // Of several that there are, the first one is told.
  std::optional<RegularFile> tryBelow(const std::string& root, const std::string& name,
                                      std::int64_t begin = INT64_MIN) {
    reply_.searched.push_back(root == "/" ? name : root + name);
    std::optional<RegularFile> file = RegularFile::openBelow(root, name);
    if (file && file->changed() < begin) {
      reply_.outcome = Outcome::OldPerfMap;
      return std::nullopt;
    }
    if (file && reply_.file.empty()) {
      reply_.file = reply_.searched.back();
    }
    return file;
  }

 private:
  CodeListReply& reply_;
};

std::optional<RegularFile> _findMap(const File& file, const Options& options,
                                    CodeListReply& reply) {
  MapSearch search(reply);
  const std::string id = std::to_string(file.pid);
  if (options.sameMachine) {
    const std::string process = "/proc/" + id;
    const std::string ownId = _innermostId(process);
    if (!ownId.empty()) {
      if (auto map =
              search.tryBelow(process + "/root", "/tmp/perf-" + ownId + ".map", file.begin)) {
        return map;
      }
    }
  }
  for (const std::string& root : options.sysroots) {
    if (auto map = search.tryBelow(root, "/tmp/perf-" + id + ".map", file.begin)) {
      return map;
    }
  }
  return std::nullopt;
}

}  // namespace

CodeListReply writeCodeList(const File& file, const Options& options, Demangler& demangler,
                            const std::string& path) {
  CodeListReply reply;
  const std::optional<RegularFile> map = _findMap(file, options, reply);
  const std::string text = map ? map->readText(MAX_MAP) : std::string();
  std::vector<Symbol> symbols = parsePerfMap(text);
  std::deque<std::string> dumps;  // have the names
  for (const std::string& name : file.jitDumps) {
    MapSearch search(reply);
    for (const std::string& root : options.sysroots) {
      if (const std::optional<RegularFile> dump = search.tryBelow(root, name)) {
        const std::vector<Symbol> more =
            parseJitDump(dumps.emplace_back(dump->readText(MAX_MAP)), file.lastTime);
        symbols.insert(symbols.end(), more.begin(), more.end());
        break;
      }
    }
  }
  const ListText list = listOfCode(std::move(symbols), file.ranges, demangler);
  demangler.clear();
  if (list.isEmpty()) {
    return reply;
  }
  reply.outcome =
      kestrel::FileUtils::writeFile(path, list.text()) ? Outcome::Named : Outcome::Failed;
  return reply;
}

}  // namespace listing
