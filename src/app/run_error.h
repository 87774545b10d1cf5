#pragma once

#include <stdexcept>
#include <string>

// The run cannot go on: bad input, or a result that cannot be written or computed. `main` prints
// the text as one line on standard error and ends with exit status 1, as it does for the errors
// of the stages' own types (ViewFileError, ModelWriteError, ImprovementError).
class RunError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Throws RunError with `problem` unless it is empty: for the steps that give their reason as text.
inline void throw_if(const std::string& problem) {
  if (!problem.empty()) throw RunError(problem);
}

// The command line ends the process at once with `status`: it asked for the usage or the version,
// or it was wrong, and the parser has already said why.
struct CommandLineExit {
  int status;
};
