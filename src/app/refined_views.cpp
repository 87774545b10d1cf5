#include "src/app/refined_views.h"

#include <cstdio>
#include <filesystem>
#include <map>
#include <stdexcept>

#include "src/io/temporary_file.h"
#include "src/io/view_camera.h"

namespace fs = std::filesystem;

namespace {

void write_file(const std::string& path, const std::string& text) {
  TemporaryFile file(path);
  std::FILE* out = std::fopen(file.path.c_str(), "w");
  if (out == nullptr) throw std::runtime_error("cannot be opened");
  const bool written = std::fwrite(text.data(), 1, text.size(), out) == text.size();
  if (std::fclose(out) != 0 || !written) throw std::runtime_error("the text could not be written");
  file.commit(path);
}

}  // namespace

std::string refined_view_name(const std::string& file) { return fs::path(file).filename().string(); }

std::string prepare_refined_views(const std::string& directory, const std::vector<std::string>& view_files) {
  std::map<std::string, std::string> first_with_name;
  for (const std::string& file : view_files) {
    const std::string name = refined_view_name(file);
    if (name.empty() || name == "." || name == "..")
      return "--improve-cameras: view file \"" + file + "\" has no name to write its refined view under";
    const auto [it, added] = first_with_name.emplace(name, file);
    if (!added)
      return "--improve-cameras: view files \"" + it->second + "\" and \"" + file + "\" have the same name \"" +
             name + "\", so their refined views in \"" + directory + "\" would overwrite each other";
  }
  std::error_code ec;
  fs::create_directories(directory, ec);
  if (ec) return "cannot create the directory of the refined views \"" + directory + "\": " + ec.message();
  for (const auto& [name, file] : first_with_name) {
    const std::string path = directory + "/" + name;
    if (fs::is_directory(path)) return "cannot write refined view \"" + path + "\": it is a directory";
    // A rerun on the refined views of an earlier run into the same directory.
    if (fs::equivalent(path, file, ec))
      return "--improve-cameras: the refined view \"" + path + "\" would overwrite the input view file \"" + file +
             "\"; choose another output directory";
  }
  return {};
}

std::string write_refined_views(const std::string& directory, const std::vector<std::string>& view_files,
                                const std::vector<Camera>& cameras, const std::vector<std::string>& depth_paths) {
  for (std::size_t i = 0; i < cameras.size(); ++i) {
    const std::string path = directory + "/" + refined_view_name(view_files[i]);
    try {
      write_file(path, format_view_file(view_file_from_camera(cameras[i], depth_paths[i])));
    } catch (const std::runtime_error& e) {
      return "cannot write refined view \"" + path + "\": " + e.what();
    }
  }
  return {};
}
