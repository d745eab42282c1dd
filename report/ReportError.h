// What ends a run of tracemill-report: one sentence that names the file or the step, says what was
// wrong and what to do. Thrown anywhere below main(), which prints it.
#pragma once

#include <stdexcept>

namespace report {

class ReportError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace report
