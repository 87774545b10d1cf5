#include "src/app/model_files.h"

#include <string>
#include <vector>

#include "src/app/run_error.h"
#include "src/core/settings.h"
#include "src/io/output_directory.h"

PlyColorNames model_color_names = PlyColorNames::diffuse;

namespace {
std::string created_folder;  // the outermost folder that make_output_directory created
}  // namespace

void make_output_directory() {
  created_folder = outermost_missing_folder(output_directory);
  std::vector<std::string> names = {kSuperpixelModelName, kModelName};
  if (use_backface_visibility_test) names.insert(names.end(), {kBackfaceModelName1, kBackfaceModelName2});
  throw_if(prepare_output_directory(output_directory, names));
}

void remove_new_empty_output_directory() {
  if (!output_directory.empty()) remove_empty_folders(output_directory, created_folder);
}
