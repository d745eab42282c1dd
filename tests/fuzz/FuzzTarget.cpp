#include "tests/fuzz/FuzzTarget.h"

#include <cstdio>
#include <cstdlib>
#include <unistd.h>

// The standard streams of glibc are variables that a program may set. The descriptor stays for the
// sanitizers' reports.
void silenceMessages() { stderr = std::fopen("/dev/null", "w"); }

void reportFinding(const std::string& text) {
  dprintf(STDERR_FILENO, "FINDING: %s\n", text.c_str());
  std::abort();
}
