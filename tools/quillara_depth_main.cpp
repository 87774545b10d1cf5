// quillara-depth: depth maps from calibrated colour images, written beside new view files.
#include <iostream>

#include "tools/cli/tool_main.h"
#include "tools/depth/depth_arguments.h"
#include "tools/depth/run_depth.h"

int main(int argc, char** argv) {
  return cli::run_tool("quillara-depth", depth_tool::depth_usage(), argc, argv, [](const auto& args) {
    depth_tool::run_depth(depth_tool::parse_depth_arguments(args), std::cout);
  });
}
