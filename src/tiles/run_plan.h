#pragma once

#include <cstdint>
#include <stdexcept>
#include <vector>

#include "src/filter/filter_particles.h"
#include "src/tiles/scaffold.h"
#include "src/tiles/tile_plan.h"

// Peak memory of the fine level, per particle of a tile: the particle, its offset and normal,
// the filter's index, envelopes and per-pass results, and the copies the reordering and the sort
// make (measured; see the tiles section of README.md).
inline constexpr std::uint64_t kBytesPerFineParticle = 200;
// The same for the superpixel-level model, filtered globally.
inline constexpr std::uint64_t kBytesPerScaffoldParticle = 260;
// The program itself, its libraries and thread stacks.
inline constexpr std::uint64_t kProcessBytes = 48ull << 20;

// Halo of a tile in pixel footprints at the average depth (chosen by measurement, see README.md).
inline constexpr float kHaloPixels = 20.0f;

// The budget cannot hold what even the smallest plan needs. The text says which size would do.
class TileBudgetError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct RunPlan {
  float halo = 0.0f;                   // in world units
  std::uint64_t tile_capacity = 0;     // particles a tile may hold, its halo included
  // The fine filter's neighbour stride, one for all tiles: the whole run would take it from the
  // average cell length of all its particles, which no tile sees; it is estimated from where they
  // start. 0 for a plan of one tile, which sees them all and takes it from its cells.
  float average_cell_length = 0.0f;
  int stride = 0;
  std::vector<Tile> tiles;
};

// Memory a run needs besides its tile's particles: the program, the scaffold and one view being
// read (its images, depth images and particles before the halo test).
std::uint64_t fixed_bytes(const Scaffold& scaffold);

// Peak memory of a tile: the fixed part and its particles.
std::uint64_t tile_bytes(const Scaffold& scaffold, const Tile& tile);

// Plans the fine level of a run: tiles whose particles, halo included, fit `budget` bytes (0 for
// no budget) and at least min_tiles of them, with a halo of halo_pixels pixel footprints (`footprint`:
// one pixel at the average depth, in world units); the stride is the one fine_filter would take
// from the cells of all particles. Throws TileBudgetError when the budget is too small for the
// scaffold or for the particles of one view (which no tile can split), naming the size that
// would do.
RunPlan plan_run(const Scaffold& scaffold, std::uint64_t budget, int min_tiles, const FilterOptions& fine_filter,
                 float footprint, float halo_pixels = kHaloPixels);

// Refuses a budget that cannot even hold the superpixel level of `view_count` views of the size
// of the first, before any work; the superpixel level is global, so tiles cannot shrink it.
void check_scaffold_budget(std::uint64_t budget, std::uint64_t scaffold_particles);
