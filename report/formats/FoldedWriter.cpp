#include "report/formats/FoldedWriter.h"

#include <algorithm>
#include <map>
#include <ostream>

#include "report/formats/StackCounts.h"

namespace report {

namespace {

std::string cleaned(std::string name) {
  std::replace(name.begin(), name.end(), ';', ':');
  std::replace(name.begin(), name.end(), '\n', ' ');
  return name;
}

}  // namespace

void writeFolded(std::ostream& out, const Profile& profile) {
  // Processes of the same name are one, as in other programs that fold.
  std::map<std::string, uint32_t> groups;
  std::vector<uint32_t> groupOfThread;
  for (const ProfileThread& thread : profile.threads) {
    const std::string name = cleaned(titleOf(thread.processName));
    groupOfThread.push_back(
        groups.try_emplace(name, static_cast<uint32_t>(groups.size())).first->second);
  }
  std::vector<std::string> titles(groups.size());
  for (const auto& [name, group] : groups) {
    titles[group] = name;
  }
  std::vector<std::string> names;
  for (const Frame& frame : profile.frames) {
    names.push_back(cleaned(frame.name));
  }
  for (const StackCount& row : countStacks(profile, groupOfThread)) {
    out << titles[row.group];
    const std::vector<uint32_t> frames = framesOf(profile, row.stack);
    for (auto frame = frames.rbegin(); frame != frames.rend(); ++frame) {
      out << ';' << names[*frame];
    }
    out << ' ' << row.count << '\n';
  }
}

}  // namespace report
