// What bench/record_kinds records: programs that live in every way a profiler has to follow.
//
//   workload chains SECONDS            static functions, call chains, a sort, the vdso, system
//   calls workload threads SECONDS           four threads with names of their own workload workers
//   SECONDS           children that are forked and never execute anything else workload exec
//   SECONDS PROGRAM...   becomes each of the programs in turn workload reuse SECONDS PROGRAM...
//   children that have the same process id, one after another workload plugins SECONDS FILE...
//   loads, calls and unloads each of the plugins, round after round workload code SECONDS writes
//   machine code into memory and calls it (x86-64, arm64),
//                                      with and without a perf map
//   workload unlinked SECONDS          removes its own file, then as chains
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <linux/sched.h>
#include <random>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

volatile unsigned long sink;

__attribute__((noinline)) unsigned long mix(unsigned long value) {
  for (int i = 0; i < 2000; ++i) {
    value = value * 6364136223846793005ul + 1442695040888963407ul;
  }
  return value;
}

__attribute__((noinline)) unsigned long descend(unsigned depth, unsigned long value) {
  const unsigned long mixed = mix(value + depth);
  return depth == 0 ? mixed : descend(depth - 1, mixed) + 1;
}

__attribute__((noinline)) void sortSome(unsigned seed) {
  std::mt19937 random(seed);
  std::vector<unsigned> numbers(20'000);
  for (unsigned& number : numbers) {
    number = random();
  }
  std::sort(numbers.begin(), numbers.end());
  sink = numbers[100];
}

__attribute__((noinline)) void askTheClock() {
  for (int i = 0; i < 20'000; ++i) {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    sink = static_cast<unsigned long>(now.tv_nsec);
  }
}

__attribute__((noinline)) void askTheKernel() {
  for (int i = 0; i < 2000; ++i) {
    sink = static_cast<unsigned long>(syscall(SYS_getppid));
  }
}

// Runs `round` over and over.
template <typename Round>
void runFor(double seconds, Round&& round) {
  const auto end = Clock::now() + std::chrono::duration<double>(seconds);
  for (unsigned i = 0; Clock::now() < end; ++i) {
    round(i);
  }
}

void runChains(double seconds) {
  runFor(seconds, [](unsigned i) {
    sink = descend(20, i);
    sortSome(i);
    askTheClock();
    askTheKernel();
  });
}

void runThreads(double seconds) {
  std::vector<std::thread> threads;
  for (unsigned i = 0; i < 4; ++i) {
    threads.emplace_back([i, seconds] {
      prctl(PR_SET_NAME, ("thread-" + std::to_string(i)).c_str());
      runFor(seconds, [](unsigned round) { sink = descend(5, round); });
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

void runWorkers(double seconds) {
  std::vector<pid_t> children;
  for (unsigned i = 0; i < 3; ++i) {
    const pid_t child = fork();
    if (child == 0) {
      runChains(seconds);
      _exit(0);
    }
    children.push_back(child);
  }
  runChains(seconds);
  for (const pid_t child : children) {
    waitpid(child, nullptr, 0);
  }
}

// Becomes the first of the programs, which goes on with the others.
void runExec(double seconds, const std::vector<std::string>& programs) {
  runChains(seconds);
  if (programs.empty()) {
    return;
  }
  std::vector<std::string> words{programs[0], "exec", std::to_string(seconds)};
  words.insert(words.end(), programs.begin() + 1, programs.end());
  std::vector<char*> arguments;
  for (std::string& word : words) {
    arguments.push_back(word.data());
  }
  arguments.push_back(nullptr);
  execv(arguments[0], arguments.data());
  std::perror(arguments[0]);
  std::exit(1);
}

// A child of this process id, or of any if it is 0.
pid_t forkAs(pid_t pid) {
  clone_args arguments{};
  arguments.exit_signal = SIGCHLD;
  if (pid != 0) {
    arguments.set_tid = reinterpret_cast<__u64>(&pid);
    arguments.set_tid_size = 1;
  }
  return static_cast<pid_t>(syscall(SYS_clone3, &arguments, sizeof arguments));
}

void runReuse(double seconds, const std::vector<std::string>& programs) {
  pid_t pid = 0;
  for (const std::string& program : programs) {
    const pid_t child = forkAs(pid);
    if (child < 0) {
      std::perror("clone3");
      std::exit(1);
    }
    if (child == 0) {
      runChains(seconds);  // as a copy of this program, before it becomes another
      runExec(0, {program});
    }
    waitpid(child, nullptr, 0);
    pid = child;
  }
}

void runPlugins(double seconds, const std::vector<std::string>& plugins) {
  runFor(seconds, [&](unsigned i) {
    const std::string& plugin = plugins[i % plugins.size()];
    void* const library = dlopen(plugin.c_str(), RTLD_NOW);
    auto* const work =
        library == nullptr
            ? nullptr
            : reinterpret_cast<unsigned long (*)(unsigned long)>(dlsym(library, "pluginWork"));
    if (work == nullptr) {
      std::fprintf(stderr, "%s\n", dlerror());
      std::exit(1);
    }
    runFor(0.02, [&](unsigned round) { sink = work(round); });
    dlclose(library);
  });
}

// A function that counts down from its first argument.
std::string countDown() {
#if defined(__x86_64__)
  // 1: sub $1, %rdi; jnz 1b; ret
  return std::string("\x48\x83\xef\x01\x75\xfa\xc3", 7);
#elif defined(__aarch64__)
  // 1: subs x0, x0, #1; b.ne 1b; ret
  return std::string("\x00\x04\x00\xf1\xe1\xff\xff\x54\xc0\x03\x5f\xd6", 12);
#else
  std::fputs("no machine code for this processor\n", stderr);
  std::exit(1);
#endif
}

void runCode(double seconds) {
  const std::string code = countDown();
  std::vector<void (*)(unsigned long)> functions;
  const std::string mapName = "/tmp/perf-" + std::to_string(getpid()) + ".map";
  FILE* const perfMap = std::fopen(mapName.c_str(), "w");
  for (int i = 0; i < 3; ++i) {
    void* const memory =
        mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    std::memcpy(memory, code.data(), code.size());
    mprotect(memory, 4096, PROT_READ | PROT_EXEC);
    __builtin___clear_cache(static_cast<char*>(memory), static_cast<char*>(memory) + 4096);
    if (i != 2 && perfMap != nullptr) {  // the last one has no name
      std::fprintf(perfMap, "%lx %zx made code number %d\n",
                   reinterpret_cast<unsigned long>(memory), code.size(), i);
    }
    functions.push_back(reinterpret_cast<void (*)(unsigned long)>(memory));
  }
  if (perfMap != nullptr) {
    std::fclose(perfMap);
  }
  runFor(seconds, [&](unsigned i) { functions[i % functions.size()](1'000'000); });
}

int usage() {
  std::fputs(
      "usage: workload chains|threads|workers|exec|reuse|plugins|code|unlinked SECONDS [FILE...]\n",
      stderr);
  return 2;
}

}  // namespace

int main(int count, char** words) {
  if (count < 3) {
    return usage();
  }
  const std::string_view way = words[1];
  const double seconds = std::strtod(words[2], nullptr);
  const std::vector<std::string> files(words + 3, words + count);
  if (way == "chains") {
    runChains(seconds);
  } else if (way == "threads") {
    runThreads(seconds);
  } else if (way == "workers") {
    runWorkers(seconds);
  } else if (way == "exec") {
    runExec(seconds, files);
  } else if (way == "reuse") {
    runReuse(seconds, files);
  } else if (way == "plugins" && !files.empty()) {
    runPlugins(seconds, files);
  } else if (way == "code") {
    runCode(seconds);
  } else if (way == "unlinked") {
    unlink(words[0]);
    runChains(seconds);
  } else {
    return usage();
  }
}
