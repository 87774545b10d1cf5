// quillara-import: another tool's views with depth maps to quillara view files.
#include <iostream>

#include "tools/cli/tool_main.h"
#include "tools/import/import_arguments.h"
#include "tools/import/run_import.h"

int main(int argc, char** argv) {
  return cli::run_tool("quillara-import", importer::import_usage(), argc, argv, [](const auto& args) {
    importer::run_import(importer::parse_import_arguments(args), std::cout);
  });
}
