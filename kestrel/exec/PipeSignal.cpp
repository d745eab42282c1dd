#include "kestrel/exec/PipeSignal.h"

#include <csignal>

namespace kestrel {

namespace {

struct PipeSignalState {
  bool ignored;
  struct sigaction former;
};

// Zero before any code runs, so that restore() needs no initialisation in the child.
PipeSignalState state;

}  // namespace

void PipeSignal::ignore() {
  if (state.ignored) {
    return;
  }
  struct sigaction ignoring = {};
  ignoring.sa_handler = SIG_IGN;
  sigemptyset(&ignoring.sa_mask);
  state.ignored = sigaction(SIGPIPE, &ignoring, &state.former) == 0;
}

void PipeSignal::restore() {
  if (!state.ignored) {
    return;
  }
  const bool wasIgnored =
      (state.former.sa_flags & SA_SIGINFO) == 0 && state.former.sa_handler == SIG_IGN;
  struct sigaction before = {};
  before.sa_handler = wasIgnored ? SIG_IGN : SIG_DFL;
  sigemptyset(&before.sa_mask);
  sigaction(SIGPIPE, &before, nullptr);
}

}  // namespace kestrel
