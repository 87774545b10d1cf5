// quillara-depth: depth maps from calibrated colour images, written beside new view files.
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "tools/depth/depth_arguments.h"
#include "tools/depth/depth_views.h"
#include "tools/depth/run_depth.h"

int main(int argc, char** argv) {
  const depth_tool::ParsedDepthArguments parsed =
      depth_tool::parse_depth_arguments(std::vector<std::string>(argv + 1, argv + argc));
  if (parsed.action == depth_tool::ParsedDepthArguments::Action::help) {
    std::cout << depth_tool::depth_usage();
    return 0;
  }
  if (parsed.action == depth_tool::ParsedDepthArguments::Action::error) {
    std::cerr << "quillara-depth: " << parsed.error << "\nRun 'quillara-depth --help' for usage.\n";
    return 1;
  }
  try {
    depth_tool::run_depth(parsed.options, std::cout);
  } catch (const depth_tool::DepthError& e) {
    std::cout.flush();
    std::cerr << "quillara-depth: " << e.what() << "\n";
    return 1;
  } catch (const std::exception& e) {
    std::cout.flush();
    std::cerr << "quillara-depth: internal error: " << e.what() << "\n";
    return 2;
  }
  return 0;
}
