// The program tracemill-report, behind its main().
#pragma once

namespace report {

// The exit status: 0, 1 when a step failed, 2 for a mistake on the command line. What went wrong
// has been said on standard error.
int run(int argc, char** argv);

}  // namespace report
