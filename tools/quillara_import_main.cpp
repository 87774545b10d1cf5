// quillara-import: another tool's views with depth maps to quillara view files.
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "tools/import/import_arguments.h"
#include "tools/import/import_error.h"
#include "tools/import/run_import.h"

int main(int argc, char** argv) {
  const importer::ParsedImportArguments parsed =
      importer::parse_import_arguments(std::vector<std::string>(argv + 1, argv + argc));
  if (parsed.action == importer::ParsedImportArguments::Action::help) {
    std::cout << importer::import_usage();
    return 0;
  }
  if (parsed.action == importer::ParsedImportArguments::Action::error) {
    std::cerr << "quillara-import: " << parsed.error << "\nRun 'quillara-import --help' for usage.\n";
    return 1;
  }
  try {
    importer::run_import(parsed.options, std::cout);
  } catch (const std::exception& e) {
    std::cout.flush();
    std::cerr << "quillara-import: " << e.what() << "\n";
    return 1;
  }
  return 0;
}
