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

std::string outermost_missing_folder(const std::string& dir) {
  std::error_code ec;
  fs::path path = fs::absolute(dir, ec).lexically_normal();
  if (ec || fs::exists(path, ec)) return {};
  if (!path.has_filename()) path = path.parent_path();  // a trailing slash
  while (path.has_parent_path() && path.parent_path() != path && !fs::exists(path.parent_path(), ec))
    path = path.parent_path();
  return path.string();
}

void remove_empty_folders(const std::string& dir, const std::string& top) {
  if (top.empty()) return;
  std::error_code ec;
  fs::path path = fs::absolute(dir, ec).lexically_normal();
  if (!path.has_filename()) path = path.parent_path();
  const fs::path last = fs::path(top);
  if (path.string().rfind(last.string(), 0) != 0) return;  // only folders inside the created one
  while (!ec && fs::is_directory(path, ec) && fs::is_empty(path, ec)) {
    fs::remove(path, ec);
    if (path == last || !path.has_parent_path()) break;
    path = path.parent_path();
  }
}
