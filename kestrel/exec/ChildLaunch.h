// The child's side of starting a command: what happens between fork() and exec. The program has
// threads, and any of them may have held any lock at the time of the fork; so everything the child
// needs is made ready before, and the child uses only async-signal-safe calls, execvp() and
// execvpe().
#pragma once

namespace kestrel {

struct ChildLaunch {
  char* const* argv = nullptr;       // null-terminated; the first entry is searched on PATH
  char* const* envp = nullptr;       // null-terminated; null: the environment is inherited
  const char* workingDir = nullptr;  // null: the child stays where the program is
  int stdinFd = -1;                  // what becomes descriptor 0
  int stdoutFd = -1;                 // descriptor 1
  int stderrFd = -1;                 // descriptor 2
  int statusFd = -1;                 // the write end of the exec status pipe
  int descriptorBound = 0;           // see closeUpTo()

  // Becomes the command. It gets the signal mask as it is, SIGPIPE as it was before the program
  // ignored it, and no descriptor but 0, 1 and 2. When it cannot be executed, the errno is written
  // to the status pipe as 4 bytes in the machine's order and the process ends with code 1. Only in
  // a child that fork() has just made.
  [[noreturn]] void run() const;

  // A number of descriptors that is worth trying one by one, found before the fork.
  static int findDescriptorBound();

  // Ways to close every descriptor from `first` up, best first. False when the system does not
  // offer it: kernels before 5.9 cannot close a range, and /proc may not be mounted. The last one
  // always works, for descriptors below `bound`.
  static bool closeRange(int first);
  static bool closeListed(int first);
  static void closeUpTo(int first, int bound);
};

}  // namespace kestrel
