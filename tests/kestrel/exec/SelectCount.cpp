#include "tests/kestrel/exec/SelectCount.h"

#include <atomic>
#include <sys/select.h>

namespace {

std::atomic<unsigned> returns{0};

}  // namespace

extern "C" int select(int count, fd_set* readable, fd_set* writable, fd_set* exceptions,
                      timeval* timeOut) {
  timespec limit{};
  if (timeOut != nullptr) {
    limit.tv_sec = timeOut->tv_sec;
    limit.tv_nsec = timeOut->tv_usec * 1000;
  }
  const int ready = pselect(count, readable, writable, exceptions,
                            timeOut == nullptr ? nullptr : &limit, nullptr);
  ++returns;
  return ready;
}

unsigned SelectCount::_returns() { return returns; }
