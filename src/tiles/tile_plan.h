#pragma once

#include <cstdint>
#include <stdexcept>
#include <vector>

#include "device/vector_types.h"
#include "src/tiles/space_box.h"

// One tile of a plan: the points it keeps are those whose final position lies in its core; it
// fuses every particle that starts within its halo box (the core grown by the plan's halo), from
// the views listed.
struct Tile {
  SpaceBox core;
  SpaceBox halo;
  std::vector<int> views;        // indices of the views whose particles can start in the halo box
  std::uint64_t particles = 0;   // estimated particles that start in the halo box
};

// A plan cannot meet its budget: even the smallest tile it can cut holds more than it may.
class TilePlanError : public std::runtime_error {
 public:
  TilePlanError(const std::string& text, std::uint64_t needed) : std::runtime_error(text), needed_particles(needed) {}
  std::uint64_t needed_particles;  // the fewest particles per tile a plan could work with
};

// Cuts space into axis-aligned tiles whose cores cover all of it (the outer ones reach to
// infinity): the heaviest tile is halved at the median of its samples along its longest extent
// until every halo box holds at most max_particles and there are at least min_tiles. Each sample
// stands for `weight` particles. Throws TilePlanError when a tile cannot be cut any smaller.
std::vector<Tile> plan_tiles(const std::vector<float3>& samples, double weight, std::uint64_t max_particles,
                             int min_tiles, float halo);

// Lists in each tile the views whose box of starting positions meets its halo box.
void assign_views(std::vector<Tile>& tiles, const std::vector<SpaceBox>& view_boxes);
