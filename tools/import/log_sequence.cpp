#include "tools/import/log_sequence.h"

#include <algorithm>
#include <filesystem>
#include <vector>

#include "tools/import/text_file.h"

namespace importer {
namespace {

namespace fs = std::filesystem;

// Regular, not hidden files of a folder in name order.
std::vector<std::string> files_in(const std::string& dir) {
  if (!fs::is_directory(dir)) fail(dir, "no such folder");
  std::vector<std::string> names;
  for (const fs::directory_entry& e : fs::directory_iterator(dir)) {
    const std::string name = e.path().filename().string();
    if (e.is_regular_file() && name[0] != '.') names.push_back(name);
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace

// Blocks of five data lines, read in order, so that a line missing or extra is reported where
// it shows: at the first line that does not have the shape its place in the block asks for.
std::vector<TrajectoryBlock> read_trajectory_log(const std::string& path) {
  const TextFile file = read_text_file(path);
  std::vector<size_t> lines;  // the lines that hold data
  for (size_t i = 0; i < file.lines.size(); ++i)
    if (!is_blank_or_comment(file.lines[i])) lines.push_back(i);
  std::vector<TrajectoryBlock> blocks;
  for (size_t b = 0; b < lines.size(); b += 5) {
    const std::string block_at = "the block that starts at line " + std::to_string(lines[b] + 1);
    const std::vector<std::string> head = split_fields(file.lines[lines[b]]);
    long ids[3] = {};
    if (head.size() != 3 || !parse_number(head[0], ids[0]) || !parse_number(head[1], ids[1]) ||
        !parse_number(head[2], ids[2]))
      file.fail_at(lines[b], "expected a block head \"id id frame\" of three integers");
    double m[16];
    for (int r = 0; r < 4; ++r) {
      if (b + 1 + r >= lines.size())
        file.fail_at(lines.back(), "the file ends inside " + block_at + ", after " + std::to_string(r) +
                                       " of its 4 matrix rows");
      const size_t line = lines[b + 1 + r];
      const std::vector<std::string> row = split_fields(file.lines[line]);
      if (row.size() != 4)
        file.fail_at(line, "expected row " + std::to_string(r + 1) + " of the matrix of " + block_at +
                               ", 4 numbers; found " + std::to_string(row.size()) + " fields");
      const std::vector<double> v = numbers_at(file, line, row, 0, 4, "a matrix row of 4 numbers");
      std::copy(v.begin(), v.end(), m + 4 * r);
    }
    TrajectoryBlock block;
    block.frame = ids[2];
    block.rotation = {{m[0], m[1], m[2], m[4], m[5], m[6], m[8], m[9], m[10]}};
    block.centre = {m[3], m[7], m[11]};
    if (m[12] != 0 || m[13] != 0 || m[14] != 0 || m[15] != 1)
      file.fail_at(lines[b + 4], "the last matrix row must be 0 0 0 1");
    if (!is_rotation(block.rotation, 1e-4))
      file.fail_at(lines[b + 1], "the upper left 3x3 of the matrix is not a rotation");
    blocks.push_back(block);
  }
  return blocks;
}

SourceScene read_log_sequence(const std::string& dir, const std::string& trajectory, const Intrinsics& intrinsics,
                              double depth_scale) {
  const std::vector<std::string> colour = files_in(dir + "/color"), depth = files_in(dir + "/depth");
  if (colour.size() != depth.size())
    fail(dir,
         "color/ holds " + std::to_string(colour.size()) + " files but depth/ holds " + std::to_string(depth.size()));
  SourceScene scene;
  scene.description = "trajectory-log sequence " + dir;
  scene.depth_format = DepthFormat::png16;
  scene.depth_scale = depth_scale;
  std::vector<bool> posed(depth.size(), false);
  for (const TrajectoryBlock& block : read_trajectory_log(trajectory)) {
    if (block.frame < 1 || block.frame > static_cast<long>(depth.size()))
      fail(trajectory, "frame " + std::to_string(block.frame) + " does not exist; frames count from 1 to the " +
                           std::to_string(depth.size()) + " images of depth/");
    const size_t i = static_cast<size_t>(block.frame - 1);
    posed[i] = true;
    SourceView view;
    view.name = depth[i];
    view.intrinsics = intrinsics;
    view.pose = pose_from_camera_to_world(block.rotation, block.centre);
    view.colour_path = dir + "/color/" + colour[i];
    view.depth_path = dir + "/depth/" + depth[i];
    scene.views.push_back(view);
  }
  if (depth.empty()) scene.notes.push_back(dir + "/depth holds no image");
  if (const auto unposed = std::count(posed.begin(), posed.end(), false); unposed > 0)
    scene.notes.push_back(std::to_string(unposed) + " frames without a pose left out");
  return scene;
}

}  // namespace importer
