#include "tools/cli/tool_main.h"

#include <exception>
#include <iostream>

#include "tools/cli/arguments.h"

namespace cli {

int run_tool(const std::string& program, const std::string& usage, int argc, char** argv,
             const std::function<void(const std::vector<std::string>& args)>& run) {
  const std::vector<std::string> args(argv + (argc > 0 ? 1 : 0), argv + argc);
  for (const std::string& arg : args) {
    if (arg == "--") break;
    if (arg == "--help" || arg == "-h") {
      std::cout << usage;
      return 0;
    }
    if (arg == "--version") {
      std::cout << program << " " << QUILLARA_VERSION << "\n";
      return 0;
    }
  }
  try {
    run(args);
    return 0;
  } catch (const UsageError& e) {
    std::cout.flush();
    std::cerr << program << ": " << e.what() << " (see " << program << " --help)\n";
  } catch (const std::exception& e) {
    std::cout.flush();
    std::cerr << program << ": " << e.what() << "\n";
  }
  return 1;
}

}  // namespace cli
