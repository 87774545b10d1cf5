#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "tools/scene/model_file.h"

namespace scene {

// A model handed to a measure a block of points at a time, as often as the measure asks, so that
// a model file larger than memory is never held whole.
using BlockVisitor = std::function<void(const std::vector<ModelPoint>& block)>;
struct ModelBlocks {
  size_t points = 0;
  std::function<void(const BlockVisitor& visit)> for_each_block;
};

// Points per block read from a file: about 100 MB with the measures' own arrays.
inline constexpr size_t kModelBlockPoints = size_t{1} << 20;

// A model in memory: one block, not copied (the model must outlive the blocks).
ModelBlocks model_blocks(const std::vector<ModelPoint>& model);

// A model file, read anew for every pass; `change`, when given, is applied to every block read
// (moving the model, say). The header is read and checked at once.
ModelBlocks model_blocks(const std::string& path, std::function<void(std::vector<ModelPoint>&)> change = {},
                         size_t block_points = kModelBlockPoints);

}  // namespace scene
