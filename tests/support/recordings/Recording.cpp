#include "tests/support/recordings/Recording.h"

#include <utility>

namespace made {

Recording& Recording::map(Map map) {
  records.emplace_back(std::move(map));
  return *this;
}

Recording& Recording::comm(Comm comm) {
  records.emplace_back(std::move(comm));
  return *this;
}

Recording& Recording::fork(Task task) {
  records.emplace_back(Fork{task});
  return *this;
}

Recording& Recording::exit(Task task) {
  records.emplace_back(Exit{task});
  return *this;
}

Recording& Recording::sample(Sample sample) {
  records.emplace_back(std::move(sample));
  return *this;
}

Recording& Recording::record(Other other) {
  records.emplace_back(std::move(other));
  return *this;
}

Recording& Recording::finishedRound() {
  records.emplace_back(FinishedRound{});
  return *this;
}

std::vector<uint64_t> Recording::idsOf(std::size_t event) const {
  const std::vector<uint64_t>& ids = events.at(event).ids;
  return ids.empty() ? std::vector<uint64_t>{100 * (event + 1)} : ids;
}

}  // namespace made
