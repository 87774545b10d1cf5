#pragma once

#include <stdexcept>
#include <string>

namespace importer {

// A problem with the user's files: its text is one line "FILE: cause", printed as it stands.
struct ImportError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

[[noreturn]] inline void fail(const std::string& file, const std::string& cause) {
  throw ImportError(file + ": " + cause);
}

}  // namespace importer
