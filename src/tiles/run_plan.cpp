#include "src/tiles/run_plan.h"

#include <algorithm>
#include <cmath>
#include <unordered_set>

#include "src/tiles/memory_size.h"

namespace {

std::uint64_t scaffold_bytes(const Scaffold& s) {
  std::uint64_t bytes = s.particles.size() * (sizeof(Particle) + sizeof(float) + sizeof(float3));
  for (const SuperpixelLabels& l : s.labels) bytes += l.runs.size() * sizeof(std::uint32_t);
  return bytes + s.cameras.size() * sizeof(Camera);
}

// One view in memory while a tile is built: colour, input depth, scaffold depth and normals, and
// its particles before the halo test.
std::uint64_t view_bytes(const Scaffold& s) {
  std::uint64_t pixels = 0;
  for (const Camera& c : s.cameras) pixels = std::max<std::uint64_t>(pixels, static_cast<std::uint64_t>(c.width) * c.height);
  return pixels * (4 + 4 + 4 + 12 + 2 + sizeof(Particle) + sizeof(float) + sizeof(float3));
}

// Particles per occupied cell of edge `cell`, each sample standing for `weight` particles.
float average_cell_length(const std::vector<float3>& samples, double weight, float cell) {
  std::unordered_set<std::uint64_t> cells;
  for (const float3& p : samples) {
    const auto coordinate = [cell](float v) {
      return static_cast<std::uint64_t>(static_cast<std::int64_t>(std::floor(v / cell)) & 0x1FFFFF);
    };
    cells.insert(coordinate(p.x) | coordinate(p.y) << 21 | coordinate(p.z) << 42);
  }
  return cells.empty() ? 0.0f : static_cast<float>(weight * static_cast<double>(samples.size()) / cells.size());
}

std::string too_small(std::uint64_t budget, const std::string& what, std::uint64_t needed) {
  return "--max-memory " + format_memory_size(budget) + " is too small: " + what + "; at least " +
         format_memory_size(needed) + " would do";
}

}  // namespace

std::uint64_t fixed_bytes(const Scaffold& s) { return kProcessBytes + scaffold_bytes(s) + view_bytes(s); }

std::uint64_t tile_bytes(const Scaffold& s, const Tile& tile) {
  return fixed_bytes(s) + tile.particles * kBytesPerFineParticle;
}

void check_scaffold_budget(std::uint64_t budget, std::uint64_t scaffold_particles) {
  const std::uint64_t needed = kProcessBytes + scaffold_particles * kBytesPerScaffoldParticle;
  if (budget > 0 && budget < needed)
    throw TileBudgetError(too_small(budget, "the superpixel level alone has " + std::to_string(scaffold_particles) +
                                                " particles",
                                    needed));
}

RunPlan plan_run(const Scaffold& s, std::uint64_t budget, int min_tiles, const FilterOptions& fine_filter,
                 float footprint, float halo_pixels) {
  RunPlan plan;
  plan.halo = halo_pixels * footprint;
  // Enough samples to place the cuts well, few enough to stay small beside the tiles.
  std::uint64_t pixels = 0;
  for (const Camera& c : s.cameras) pixels += static_cast<std::uint64_t>(c.width) * c.height;
  const int stride = std::max(1, static_cast<int>(std::ceil(std::sqrt(static_cast<double>(pixels) / 4e6))));
  const FineStarts starts = fine_starts(s, stride);
  const std::uint64_t largest_view = *std::max_element(starts.view_particles.begin(), starts.view_particles.end());
  const std::uint64_t fixed = fixed_bytes(s);
  if (budget == 0) {
    plan.tile_capacity = UINT64_MAX;
  } else {
    const std::uint64_t least = fixed + largest_view * kBytesPerFineParticle;
    if (budget < least)
      throw TileBudgetError(too_small(budget, "one view alone makes " + std::to_string(largest_view) + " particles",
                                      least));
    plan.tile_capacity = (budget - fixed) / kBytesPerFineParticle;
  }
  try {
    plan.tiles = plan_tiles(starts.samples, static_cast<double>(stride) * stride, plan.tile_capacity, min_tiles,
                            plan.halo);
  } catch (const TilePlanError& e) {
    throw TileBudgetError(too_small(budget, e.what(), fixed + e.needed_particles * kBytesPerFineParticle));
  }
  assign_views(plan.tiles, starts.view_boxes);
  // The fine filter's cells have the edge of its radius.
  plan.average_cell_length =
      average_cell_length(starts.samples, static_cast<double>(stride) * stride, fine_filter.radius);
  if (plan.tiles.size() > 1) plan.stride = neighbour_stride(plan.average_cell_length, fine_filter.schedule.cell_samples);
  return plan;
}
