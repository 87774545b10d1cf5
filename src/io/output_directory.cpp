#include "src/io/output_directory.h"

#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "src/io/temporary_file.h"

namespace fs = std::filesystem;

std::string prepare_output_directory(const std::string& dir, const std::vector<std::string>& model_names) {
  const std::string quoted = "\"" + dir + "\"";
  std::error_code ec;
  fs::create_directories(dir, ec);
  if (ec) {
    const bool other_file = fs::exists(dir) && !fs::is_directory(dir);
    return "cannot create output directory " + quoted + ": " +
           (other_file ? std::string("it exists and is not a directory") : ec.message());
  }
  for (const std::string& name : model_names)
    if (fs::is_directory(dir + name)) return "cannot write model file \"" + dir + name + "\": it is a directory";
  try {
    TemporaryFile probe(dir + (model_names.empty() ? "/probe" : model_names.front()));
  } catch (const std::runtime_error& e) {
    return "cannot write in output directory " + quoted + ": " + e.what();
  }
  return {};
}
