// main() of every test program: each case runs in a process of its own, forked from one that has
// done nothing yet, so that single instances, keys, the log and the descriptors are fresh without a
// program start for every case.
//
//   PROGRAM [--gtest_filter=PATTERN] [other options of GoogleTest]
//
// A line for each case, what failed above it, and at the end the line "cases: N passed, N skipped,
// N failed". Ends with status 0, with 1 when a case failed or none was found, with 77 when all were
// skipped. A case that takes more than CASE_SECONDS fails: SIGALRM ends it. A pattern that names
// one case runs it in this process, for debuggers.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

constexpr int SKIPPED = 77;
#ifdef TRACEMILL_EMULATED
constexpr unsigned CASE_SECONDS = 1200;
#else
constexpr unsigned CASE_SECONDS = 300;
#endif

struct Counts {
  int passed = 0;
  int skipped = 0;
  int failed = 0;
};

// What went wrong, and why a case was skipped; nothing else.
class ComplaintPrinter : public testing::EmptyTestEventListener {
 public:
  void OnTestPartResult(const testing::TestPartResult& result) override {
    if (result.passed()) {
      return;
    }
    const char* const file = result.file_name() == nullptr ? "(no file)" : result.file_name();
    std::printf("%s:%d: %s\n", file, result.line_number(), result.message());
    std::fflush(stdout);
  }
};

[[noreturn]] void giveUp(const char* call) {
  std::printf("%s: %s\n", call, std::strerror(errno));
  std::exit(EXIT_FAILURE);
}

// A process of this program as it is now; it does not outlive this one. What is printed is printed
// once.
pid_t forkAfresh() {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child < 0) {
    giveUp("fork");
  }
  if (child == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
  }
  return child;
}

int statusOf(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) {
      giveUp("waitpid");
    }
  }
  return status;
}

std::string readAll(int descriptor) {
  std::string text;
  char block[4096];
  ssize_t size = 0;
  while ((size = read(descriptor, block, sizeof block)) > 0) {
    text.append(block, static_cast<std::size_t>(size));
  }
  return text;
}

bool isDisabled(const std::string& name) {
  return name.find("DISABLED_") != std::string::npos && !GTEST_FLAG_GET(also_run_disabled_tests);
}

// GoogleTest's own list: a suite a line, with a dot at its end, and below it the names of its cases
// after two blanks;
// "#" starts a remark.
std::vector<std::string> namesIn(const std::string& list) {
  std::vector<std::string> names;
  std::string suite;
  for (std::size_t start = 0; start < list.size();) {
    const std::size_t end = std::min(list.find('\n', start), list.size());
    std::string line = list.substr(start, end - start);
    start = end + 1;
    line.erase(std::min(line.find('#'), line.size()));
    line.erase(line.find_last_not_of(' ') + 1);
    if (line.rfind("  ", 0) != 0) {
      suite = line;
    } else if (!isDisabled(suite + line.substr(2))) {
      names.push_back(suite + line.substr(2));
    }
  }
  return names;
}

// The cases that the filter lets through. They are listed in a process of their own: GoogleTest
// does so once.
std::vector<std::string> chosenCases() {
  int ends[2];
  if (pipe(ends) != 0) {
    giveUp("pipe");
  }
  const pid_t lister = forkAfresh();
  if (lister == 0) {
    dup2(ends[1], STDOUT_FILENO);
    close(ends[0]);
    close(ends[1]);
    GTEST_FLAG_SET(list_tests, true);
    const int status = RUN_ALL_TESTS();
    std::fflush(nullptr);
    _exit(status);
  }
  close(ends[1]);
  const std::string list = readAll(ends[0]);
  close(ends[0]);
  statusOf(lister);
  return namesIn(list);
}

// What a process ends with in which GoogleTest came to this.
int exitStatus(int outcome) {
  const bool isSkipped = testing::UnitTest::GetInstance()->skipped_test_count() > 0;
  return outcome == EXIT_SUCCESS && isSkipped ? SKIPPED : outcome;
}

// Runs one case in this process, which ends with the status returned.
int runCase(const std::string& name) {
  GTEST_FLAG_SET(filter, name);
  testing::TestEventListeners& listeners = testing::UnitTest::GetInstance()->listeners();
  delete listeners.Release(listeners.default_result_printer());
  listeners.Append(new ComplaintPrinter());
  return exitStatus(RUN_ALL_TESTS());
}

void count(int code, Counts& counts) {
  ++(code == EXIT_SUCCESS ? counts.passed : (code == SKIPPED ? counts.skipped : counts.failed));
}

int codeOf(int status) { return WIFEXITED(status) ? WEXITSTATUS(status) : EXIT_FAILURE; }

void tell(const std::string& name, int status, std::chrono::milliseconds took) {
  const int code = codeOf(status);
  const char* const outcome =
      code == EXIT_SUCCESS ? "passed" : (code == SKIPPED ? "skipped" : "FAILED");
  std::printf("%s %s (%lld ms)", outcome, name.c_str(), static_cast<long long>(took.count()));
  if (WIFSIGNALED(status)) {
    std::printf(", ended by signal %d (%s)", WTERMSIG(status), strsignal(WTERMSIG(status)));
  }
  std::printf("\n");
}

Counts runEach(const std::vector<std::string>& names) {
  Counts counts;
  for (const std::string& name : names) {
    const auto start = std::chrono::steady_clock::now();
    const pid_t child = forkAfresh();
    if (child == 0) {
      alarm(CASE_SECONDS);
      std::exit(runCase(name));
    }
    const int status = statusOf(child);
    const auto took = std::chrono::steady_clock::now() - start;
    tell(name, status, std::chrono::duration_cast<std::chrono::milliseconds>(took));
    count(codeOf(status), counts);
  }
  return counts;
}

// The closing line, and what the program ends with.
int finish(const Counts& counts) {
  std::printf("cases: %d passed, %d skipped, %d failed\n", counts.passed, counts.skipped,
              counts.failed);
  if (counts.failed > 0) {
    return EXIT_FAILURE;
  }
  if (counts.passed > 0) {
    return EXIT_SUCCESS;
  }
  return counts.skipped > 0 ? SKIPPED : EXIT_FAILURE;
}

bool isStartedByDeathTest(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    if (std::strncmp(argv[i], "--gtest_internal_run_death_test", 31) == 0) {
      return true;
    }
  }
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  const bool isPartOfACase = isStartedByDeathTest(argc, argv);
  testing::InitGoogleMock(&argc, argv);
  if (isPartOfACase || GTEST_FLAG_GET(list_tests)) {
    return RUN_ALL_TESTS();
  }
  const std::vector<std::string> names = chosenCases();
  if (names.size() == 1) {
    Counts counts;
    count(exitStatus(RUN_ALL_TESTS()), counts);
    return finish(counts);
  }
  return finish(runEach(names));
}
