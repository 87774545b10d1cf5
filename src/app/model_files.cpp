#include "src/app/model_files.h"

#include <string>
#include <vector>

#include "src/app/run_error.h"
#include "src/core/settings.h"
#include "src/io/output_directory.h"

PlyColorNames model_color_names = PlyColorNames::diffuse;

void make_output_directory() {
  std::vector<std::string> names = {kSuperpixelModelName, kModelName};
  if (use_backface_visibility_test) names.insert(names.end(), {kBackfaceModelName1, kBackfaceModelName2});
  throw_if(prepare_output_directory(output_directory, names));
}
