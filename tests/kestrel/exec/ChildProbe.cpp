// A command for the tests of child processes: prints what it was started with. The first argument
// says what:
//   descriptors   the numbers of its open descriptors
//   signals       "SIGPIPE default" or "SIGPIPE ignored", and the numbers of the blocked signals
//   arguments     the number of further arguments, then each in hexadecimal in brackets
//   environment   each variable on a line
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

namespace {

constexpr int MOST_DESCRIPTORS = 4096;
constexpr int MOST_SIGNALS = 64;

void printDescriptors() {
  for (int fd = 0; fd < MOST_DESCRIPTORS; ++fd) {
    if (fcntl(fd, F_GETFD) != -1) {
      std::printf("%d ", fd);
    }
  }
}

void printSignals() {
  struct sigaction action = {};
  sigaction(SIGPIPE, nullptr, &action);
  std::printf("SIGPIPE %s", action.sa_handler == SIG_IGN ? "ignored" : "default");
  sigset_t mask;
  sigprocmask(SIG_BLOCK, nullptr, &mask);
  for (int number = 1; number <= MOST_SIGNALS; ++number) {
    if (sigismember(&mask, number) == 1) {
      std::printf(" %d", number);
    }
  }
}

void printArguments(int argc, char** argv) {
  std::printf("%d", argc - 2);
  for (int i = 2; i < argc; ++i) {
    std::printf(" [");
    for (const char* c = argv[i]; *c != '\0'; ++c) {
      std::printf("%02x", static_cast<unsigned>(static_cast<unsigned char>(*c)));
    }
    std::printf("]");
  }
}

void printEnvironment() {
  for (char** entry = environ; *entry != nullptr; ++entry) {
    std::printf("%s\n", *entry);
  }
}

}  // namespace

int main(int argc, char** argv) {
  const char* const what = argc > 1 ? argv[1] : "";
  if (std::strcmp(what, "descriptors") == 0) {
    printDescriptors();
  } else if (std::strcmp(what, "signals") == 0) {
    printSignals();
  } else if (std::strcmp(what, "arguments") == 0) {
    printArguments(argc, argv);
  } else if (std::strcmp(what, "environment") == 0) {
    printEnvironment();
  } else {
    return 2;
  }
  return 0;
}
