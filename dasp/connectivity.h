#pragma once

#include <vector>

namespace dasp {

// Makes every cluster one 4-connected region and gives every pixel a label: each cluster keeps its
// largest connected piece (the first found in scan order on a tie); other pieces and unlabelled
// pixels (label -1) grow into the neighbouring kept regions, in breadth-first order from them.
// Labels stay indices below cluster_count; a cluster may end up empty. Needs at least one label.
void enforce_connectivity(std::vector<int>& labels, unsigned width, unsigned height, int cluster_count);

}  // namespace dasp
