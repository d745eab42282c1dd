#include "listing/ChildPool.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <fcntl.h>
#include <memory>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace listing {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint64_t MAX_REPLY = 1 << 20;
constexpr rlim_t MAX_MEMORY = rlim_t{8} << 30;  // of a child, with the files that it has mapped

bool _send(int descriptor, const void* bytes, std::size_t size) {
  const char* from = static_cast<const char*>(bytes);
  while (size > 0) {
    const ssize_t count = ::send(descriptor, from, size, MSG_NOSIGNAL);
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count <= 0) {
      return false;
    }
    from += count;
    size -= static_cast<std::size_t>(count);
  }
  return true;
}

bool _receive(int descriptor, void* bytes, std::size_t size) {
  char* to = static_cast<char*>(bytes);
  while (size > 0) {
    const ssize_t count = ::recv(descriptor, to, size, 0);
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count <= 0) {
      return false;
    }
    to += count;
    size -= static_cast<std::size_t>(count);
  }
  return true;
}

// Piece in, size and text of the reply out, until the other end closes.
[[noreturn]] void _serve(int descriptor, const ChildPool::Work& work) {
  std::uint64_t piece;
  while (_receive(descriptor, &piece, sizeof(piece))) {
    std::string reply;
    try {
      reply = work(static_cast<std::size_t>(piece));
    } catch (...) {  // as any other failure: this process is done for
      ::_exit(1);
    }
    const std::uint64_t size = reply.size();
    if (!_send(descriptor, &size, sizeof(size)) || !_send(descriptor, reply.data(), reply.size())) {
      break;
    }
  }
  ::_exit(0);
}

void _restrain() {
  const rlimit none{0, 0};
  ::setrlimit(RLIMIT_CORE, &none);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
  rlimit memory;
  if (::getrlimit(RLIMIT_DATA, &memory) == 0 && memory.rlim_cur > MAX_MEMORY) {
    memory.rlim_cur = MAX_MEMORY;
    ::setrlimit(RLIMIT_DATA, &memory);
  }
#endif
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGSEGV, SIGBUS, SIGABRT, SIGFPE}) {
    std::signal(signal, SIG_DFL);
  }
}

// One child and what it is doing.
class Child {
 public:
  ~Child() { end(); }
  Child() = default;
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  bool start(const ChildPool::Work& work, const std::vector<std::unique_ptr<Child>>& others) {
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
      return false;
    }
    const pid_t parent = ::getpid();
    pid_ = ::fork();
    if (pid_ == 0) {
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);
      if (::getppid() != parent) {
        ::_exit(1);
      }
      for (const std::unique_ptr<Child>& other : others) {
        if (other->descriptor_ != -1) {
          ::close(
              other->descriptor_);  // else that child would not see this program's end of it close
        }
      }
      ::close(ends[0]);
      _restrain();
      _serve(ends[1], work);
    }
    ::close(ends[1]);
    descriptor_ = ends[0];
    if (pid_ == -1) {
      end();
      return false;
    }
    return true;
  }

  bool give(std::size_t piece, Clock::time_point deadline) {
    piece_ = piece;
    isBusy_ = true;
    deadline_ = deadline;
    received_.clear();
    const std::uint64_t number = piece;
    return _send(descriptor_, &number, sizeof(number));
  }

  // Takes what has come. False when the child is gone or talks nonsense.
  bool receive() {
    char bytes[4096];
    const ssize_t count = ::recv(descriptor_, bytes, sizeof(bytes), MSG_DONTWAIT);
    if (count < 0 && (errno == EINTR || errno == EAGAIN)) {
      return true;
    }
    if (count <= 0) {
      return false;
    }
    received_.append(bytes, static_cast<std::size_t>(count));
    return received_.size() < sizeof(std::uint64_t) || _replySize() <= MAX_REPLY;
  }

  std::optional<std::string> reply() const {
    if (received_.size() < sizeof(std::uint64_t) ||
        received_.size() - sizeof(std::uint64_t) < _replySize()) {
      return std::nullopt;
    }
    return received_.substr(sizeof(std::uint64_t), _replySize());
  }

  // Kills it if it still runs.
  void end() {
    if (descriptor_ != -1) {
      ::close(std::exchange(descriptor_, -1));
    }
    if (pid_ > 0) {
      ::kill(pid_, SIGKILL);
      while (::waitpid(pid_, nullptr, 0) == -1 && errno == EINTR) {
      }
    }
    pid_ = -1;
    isBusy_ = false;
  }

  void rest() { isBusy_ = false; }
  bool isRunning() const { return pid_ > 0; }
  bool isBusy() const { return isBusy_; }
  std::size_t piece() const { return piece_; }
  Clock::time_point deadline() const { return deadline_; }
  int descriptor() const { return descriptor_; }

 private:
  std::uint64_t _replySize() const {
    std::uint64_t size;
    std::copy_n(received_.data(), sizeof(size), reinterpret_cast<char*>(&size));
    return size;
  }

  pid_t pid_ = -1;
  int descriptor_ = -1;
  bool isBusy_ = false;
  std::size_t piece_ = 0;
  Clock::time_point deadline_;
  std::string received_;
};

// The pieces of one run.
class Run {
 public:
  Run(std::size_t count, const ChildPool::Work& work, const ChildPool::Done& done,
      std::chrono::milliseconds timeout)
      : count_(count), work_(work), done_(done), timeout_(timeout) {}

  void execute(std::size_t processes) {
    for (std::size_t i = 0; i < std::min(processes, count_); ++i) {
      children_.push_back(std::make_unique<Child>());
    }
    while (ended_ < count_) {
      _giveOut();
      if (!_hasBusy()) {
        break;  // no process could be made
      }
      _wait();
    }
    for (; begun_ < count_; ++begun_) {
      done_(begun_, std::nullopt);
    }
  }

 private:
  void _giveOut() {
    for (const std::unique_ptr<Child>& child : children_) {
      if (child->isBusy() || begun_ == count_) {
        continue;
      }
      if (!child->isRunning() && !child->start(work_, children_)) {
        continue;
      }
      if (!child->give(begun_++, Clock::now() + timeout_)) {
        _fail(*child);
      }
    }
  }

  bool _hasBusy() const {
    return std::any_of(children_.begin(), children_.end(),
                       [](const std::unique_ptr<Child>& child) { return child->isBusy(); });
  }

  void _fail(Child& child) {
    const std::size_t piece = child.piece();
    child.end();
    ++ended_;
    done_(piece, std::nullopt);
  }

  void _wait() {
    std::vector<pollfd> polled;
    std::vector<Child*> busy;
    Clock::time_point first = Clock::time_point::max();
    for (const std::unique_ptr<Child>& child : children_) {
      if (child->isBusy()) {
        polled.push_back({child->descriptor(), POLLIN, 0});
        busy.push_back(child.get());
        first = std::min(first, child->deadline());
      }
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(first - Clock::now()).count();
    ::poll(polled.data(), polled.size(), static_cast<int>(std::clamp<long long>(left, 0, 60'000)));
    for (std::size_t i = 0; i < busy.size(); ++i) {
      _look(*busy[i], polled[i].revents != 0);
    }
  }

  void _look(Child& child, bool hasNews) {
    if (hasNews && !child.receive()) {
      _fail(child);
    } else if (std::optional<std::string> reply = child.reply()) {
      child.rest();
      ++ended_;
      done_(child.piece(), std::move(reply));
    } else if (Clock::now() >= child.deadline()) {
      _fail(child);
    }
  }

  std::size_t count_;
  const ChildPool::Work& work_;
  const ChildPool::Done& done_;
  std::chrono::milliseconds timeout_;
  std::vector<std::unique_ptr<Child>> children_;
  std::size_t begun_ = 0;
  std::size_t ended_ = 0;
};

}  // namespace

ChildPool::ChildPool(unsigned processes, std::chrono::milliseconds timeout)
    : processes_(std::max(processes, 1U)), timeout_(timeout) {}

void ChildPool::run(std::size_t count, const Work& work, const Done& done) {
  Run(count, work, done, timeout_).execute(processes_);
}

}  // namespace listing
