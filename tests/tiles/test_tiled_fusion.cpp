// The tiles of a run fused in turn on one machine: a failure on the way leaves neither the
// tiles' folder nor a model behind.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "src/app/stage_options.h"
#include "src/core/settings.h"
#include "src/tiles/run_plan.h"
#include "src/tiles/scaffold.h"
#include "src/tiles/tiled_fusion.h"
#include "src/tiles/view_source.h"
#include "tests/support/generated_scene.h"
#include "tests/support/io_test_support.h"

namespace fs = std::filesystem;

namespace {

TEST(TiledFusion, AViewFailingInTheSecondTileLeavesNoFolderAndNoModel) {
  const std::string dir = io_test::fresh_scratch_dir();
  const e2e::GeneratedScene scene = e2e::generate_scene(e2e::small_scene(dir + "/scene"));
  average_depth = std::stof(scene.average_depth);
  superpixel_count = 300;
  const ViewSource files = view_files_source(scene.view_files);
  Scaffold scaffold = read_scaffold(static_cast<int>(scene.view_files.size()), files);
  const StageOptions stages = make_stage_options(scaffold.cameras[0]);
  filter_scaffold(scaffold, stages.superpixel_filter, stages.superpixel_support);
  const RunPlan plan = plan_run(scaffold, 0, 2, stages.pixel_filter, stages.radii.pixel);
  ASSERT_GE(plan.tiles.size(), 2u);
  EXPECT_GT(plan.stride, 0);  // tiles share one stride

  // The views of the first tile read as usual; the next read fails as a vanished file would.
  std::size_t reads = 0;
  const ViewSource failing = [&](int i, Camera& camera, CMatrix<float>& depth) {
    if (reads++ == plan.tiles[0].views.size()) throw ViewFileError(scene.view_files[i], "has vanished");
    files(i, camera, depth);
  };
  const std::string out = dir + "/out";
  fs::create_directories(out);
  EXPECT_THROW(fuse_tiles(plan, scaffold, failing, stages.pixel_filter, stages.pixel_support, out, out + "/model.ply",
                          PlyColorNames::diffuse),
               ViewFileError);
  EXPECT_GT(reads, plan.tiles[0].views.size());
  EXPECT_TRUE(fs::is_empty(out));
}

}  // namespace
