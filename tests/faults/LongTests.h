// Loops whose length is a matter of patience.
#pragma once

#include <cstdlib>

// A few seconds of them in every test run; all of them with the variable TRACEMILL_LONG_TESTS,
// which the tests labelled "long" set.
inline bool areLongTests() { return std::getenv("TRACEMILL_LONG_TESTS") != nullptr; }
