#include "tools/scene/model_blocks.h"

namespace scene {

ModelBlocks model_blocks(const std::vector<ModelPoint>& model) {
  return {model.size(), [&model](const BlockVisitor& visit) { visit(model); }};
}

ModelBlocks model_blocks(const std::string& path, std::function<void(std::vector<ModelPoint>&)> change,
                         size_t block_points) {
  const size_t points = open_model_ply(path).count;
  return {points, [path, change, block_points](const BlockVisitor& visit) {
            ModelReader reader = open_model_ply(path);
            std::vector<ModelPoint> block;
            while (read_model_block(reader, block, block_points)) {
              if (change) change(block);
              visit(block);
            }
          }};
}

}  // namespace scene
