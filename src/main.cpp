#include <optional>
#include <string>
#include <vector>

#include "src/command_line.h"

int main(int argc, char* argv[]) {
  std::vector<std::string> view_files;
  if (std::optional<int> status = set_up_run(argc, argv, view_files)) return *status;

  // ---- Scene input and the stages of the run follow here. ----

  return 0;
}
