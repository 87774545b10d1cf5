#include "src/app/run_summary.h"

#include <iomanip>
#include <sstream>

#include "src/app/model_files.h"

namespace {

// Below this share of the input's depth pixels, a model has lost much of the scene: with every
// surface seen by two or more views, the visible share keeps two thirds and more, while the fixed
// levels keep about a tenth of eight views.
constexpr double kSmallShare = 0.25;

std::string advice(const RunSummary& run, double share) {
  std::ostringstream s;
  if (run.input_pixels == 0) return "The depth maps hold no depth: every pixel is 0.\n";
  if (run.points > 0 && share >= kSmallShare) return {};
  s << (run.points == 0 ? "The model is empty: " : "Few points were kept: ");
  if (run.visible_support > 0.0f) {
    s << "few points reach the share of what the views that see them could confirm (--visible-support "
      << run.visible_support << ", --visible-floor " << run.visible_support_floor
      << "); check --depth-avg and the poses of the views, or try a lower share, or --visible-floor 0 to "
         "keep what no other view sees.\n";
    return s.str();
  }
  if (run.min_support_sp <= 0.0f && run.min_support <= 0.0f) {
    s << "no support was required, so check --depth-avg against the depths of the input.\n";
    return s.str();
  }
  s << "too few views confirm each surface at the support levels in force (--min-support-sp " << run.min_support_sp
    << ", --min-support " << run.min_support
    << "); with few views try --visible-support 0.3, which asks each point only for a share of what the views that "
       "see it could confirm";
  // Lower fixed levels are worth a try only while they are above 1.
  if (run.min_support_sp > 1.0f || run.min_support > 1.0f)
    s << ", or lower levels, e.g. --min-support-sp 1 --min-support 1";
  s << ".\n";
  return s.str();
}

}  // namespace

std::string format_summary(const RunSummary& run) {
  const double share = run.input_pixels > 0 ? static_cast<double>(run.points) / run.input_pixels : 0.0;
  std::ostringstream s;
  s << "Finished in " << std::fixed << std::setprecision(1) << run.seconds << " s.\n";
  if (run.superpixel_model)
    s << "  superpixel model: " << run.superpixel_points << " points in " << run.output_directory
      << kSuperpixelModelName << "\n";
  s << "  model:            " << run.points << " points in " << run.output_directory << kModelName << ", "
    << std::setprecision(share < 0.1 ? 2 : 1) << 100.0 * share << " % of the " << run.input_pixels
    << " input depth pixels\n";
  if (run.tiles > 0)
    s << "  fused in " << run.tiles << (run.tiles == 1 ? " tile" : " tiles") << " for --max-memory "
      << run.memory_budget << "\n";
  if (run.backface_models)
    s << "  back-face models: " << run.output_directory << kBackfaceModelName1 << " and "
      << run.output_directory << kBackfaceModelName2 << " (before and after the last removal)\n";
  if (!run.views_directory.empty())
    s << "  refined views:    " << run.refined_views << " view files in " << run.views_directory << "\n";
  if (!run.preview_directory.empty())
    s << "  preview:          " << run.preview_images << " images in " << run.preview_directory << "\n";
  return s.str() + advice(run, share);
}
