#pragma once

#include <string>
#include <vector>

namespace depth_tool {

// Which matching costs build the volume.
enum class Costs {
  ncc,         // normalised cross-correlation, the other view warped per label (the fast form)
  ncc_direct,  // the same score with every window pixel reprojected by itself
  sad,         // absolute colour differences of single pixels
};

struct DepthOptions {
  std::string out_dir;
  std::vector<std::string> views;  // the view files behind "--"
  int neighbours = 4;              // at most this many other views per cost volume
  int labels = 128;                // depths tried per pixel, uniform in inverse depth
  int paths = 8;                   // scan directions of semi-global matching: 4, 8, 16 or 32
  bool range_given = false;        // --depth-range; else from each view's input depth map
  float near = 0.0f, far = 0.0f;
  // Single-pixel differences beat the correlation windows on views with one exposure: the
  // windows blur across the strong foreshortening of wide baselines.
  Costs costs = Costs::sad;
  float P1 = 0.1f;      // penalty of a change by one label
  float P2 = 1.0f;      // penalty of a larger change in flat image regions
  float P2_edge = 0.2f; // the same across strong colour edges
  int texture_radius = 4;      // window of the texture measure: (2 r + 1)^2 pixels
  float min_texture = 3.0f;    // grey levels of local spread a pixel needs to be matched
  float max_ambiguity = 0.9f;  // best over second-best path-cost valley above which a depth is dropped
  bool refine = true;          // move depths to the best slanted window
  int refine_radius = 3;
  float refine_range = 1.5f;
  int refine_steps = 7;
  float min_score = 0.0f;      // mean correlation of the refined window a depth needs
  int propagate = 4;           // passes offering each depth the planes of nearby pixels (0: none)
  int search = 3;              // passes of the per-pixel plane search, which replaces propagation and growth (0: none)
  int search_again = 0;        // passes of a second search offered the neighbours' depths (0: none)
  bool grow = true;            // grow the depths into undecided pixels along neighbouring planes
  bool align = true;           // align each neighbour's exposure to the reference first
  int consistent = 2;          // other views whose depth maps must agree
};

// Reads the arguments behind the program name: options (value as the next argument or after
// '='), then "--" and the view files. Throws cli::UsageError.
DepthOptions parse_depth_arguments(const std::vector<std::string>& args);

// The text printed by --help.
std::string depth_usage();

}  // namespace depth_tool
