#pragma once

#include <cstddef>
#include <string>

// What a finished run tells its user.
struct RunSummary {
  bool superpixel_model = true;       // a superpixel-level model was made (not with --visible-support)
  std::size_t superpixel_points = 0;  // in the superpixel-level model
  std::size_t points = 0;             // in the model
  std::size_t input_pixels = 0;       // input depth pixels with a depth
  double seconds = 0.0;               // wall time
  std::string output_directory;
  float min_support_sp = 0.0f;
  float min_support = 0.0f;
  float visible_support = 0.0f;  // the share of --visible-support; 0 with the fixed levels
  float visible_support_floor = 0.0f;
  std::string preview_directory;  // where the preview images went; empty without them
  int preview_images = 0;
  std::string views_directory;  // where the refined views went; empty without --improve-cameras
  int refined_views = 0;
  bool backface_models = false;  // the models before and after the last back-face removal were written
  int tiles = 0;                  // tiles of space the fine model was fused in; 0 for one piece
  std::string memory_budget;      // the --max-memory they were planned for, as given
};

// The closing lines: the points and path of each model, the share of input depth pixels the
// model kept and the wall time; when that share is small or the model is empty, one line more
// that says why and what to try.
std::string format_summary(const RunSummary& run);
