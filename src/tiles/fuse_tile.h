#pragma once

#include <vector>

#include "device/vector_types.h"
#include "src/core/particle.h"
#include "src/filter/filter_particles.h"
#include "src/tiles/scaffold.h"
#include "src/tiles/tile_plan.h"
#include "src/tiles/view_source.h"
#include "src/visibility/support_filter.h"

// The fine model of one tile, as the whole run would have it there: every view the tile lists is
// read in turn and its fine particles are made on the scaffold; those that start in the halo box
// are kept, filtered with the run's fine filter between two of its fine support filters, and of
// the result only the points whose final position lies in the core are returned. With a single
// tile whose boxes are all of space and no stride in the filter's schedule (0) this is the
// untiled fine level, particle for particle; tiles of one run share the stride of its plan. The
// support filters keep to their fixed level: the visible share would need the whole model.
struct TileModel {
  std::vector<Particle> particles;
  std::vector<float> offsets;
  std::vector<float3> normals;
};
TileModel fuse_tile(const Tile& tile, const Scaffold& scaffold, const ViewSource& read, const FilterOptions& filter,
                    const SupportFilterOptions& support);
