#include "tools/scene/plant_outliers.h"

#include <algorithm>
#include <cmath>

#include "formats/depth_png.h"
#include "tools/scene/texture.h"

namespace scene {
namespace {

// Uniform in [0, 1) from a counter.
double uniform(uint64_t counter) { return static_cast<double>(hash64(counter) >> 11) * (1.0 / 9007199254740992.0); }

}  // namespace

std::vector<Vec3> plant_outliers(RenderedView& view, const SceneCamera& camera, double share, uint64_t seed,
                                 int view_index) {
  std::vector<Vec3> planted;
  if (!(share > 0)) return planted;
  const int w = view.width, h = view.height;
  std::vector<int> surface;
  for (int i = 0; i < w * h; ++i)
    if (view.depth[i] > 0) surface.push_back(i);
  const size_t wanted = static_cast<size_t>(std::ceil(share * static_cast<double>(surface.size())));
  const int side = std::max(2, static_cast<int>(std::lround(8.0 * w / 640.0)));
  std::vector<char> taken(static_cast<size_t>(w) * h, 0);
  // A counter stream of its own, apart from the depth noise's.
  uint64_t counter = hash64(seed ^ 0x6f75746c69657273ULL) ^ (static_cast<uint64_t>(view_index) << 48);
  size_t count = 0;
  for (int attempt = 0; count < wanted && !surface.empty() && attempt < 1000000; ++attempt) {
    const int centre = surface[static_cast<size_t>(uniform(counter++) * surface.size())];
    const double u = uniform(counter++);
    const double factor = u < 0.5 ? 0.7 + 0.4 * u : 1.1 + 0.4 * (u - 0.5);  // 0.7-0.9 or 1.1-1.3
    const double wrong = view.depth[centre] * factor;
    const int x0 = centre % w - side / 2, y0 = centre / w - side / 2;
    for (int y = std::max(y0, 0); y < std::min(y0 + side, h); ++y)
      for (int x = std::max(x0, 0); x < std::min(x0 + side, w); ++x) {
        const int i = y * w + x;
        if (view.depth[i] <= 0 || taken[i]) continue;
        taken[i] = 1;
        ++count;
        view.measured[i] = wrong;
        view.depth_mm[i] = depth_to_thousandths(wrong);
        if (view.depth_mm[i] == 0) continue;  // beyond what the depth file holds: the pixel is empty
        planted.push_back(camera.center + thousandths_to_depth(view.depth_mm[i]) * pixel_direction(camera, x, y));
      }
  }
  return planted;
}

}  // namespace scene
