#include "src/tiles/superpixel_labels.h"

SuperpixelLabels label_superpixels(const std::vector<Superpixel>& superpixels, int width, int height) {
  std::vector<std::uint32_t> label(static_cast<std::size_t>(width) * height, SuperpixelLabels::kNoSuperpixel);
  for (std::size_t s = 0; s < superpixels.size(); ++s)
    for (const auto& [x, y] : superpixels[s].pixels) label[static_cast<std::size_t>(y) * width + x] = static_cast<std::uint32_t>(s);
  SuperpixelLabels l;
  l.width = width;
  l.height = height;
  l.count = static_cast<std::uint32_t>(superpixels.size());
  for (std::size_t i = 0; i < label.size(); ++i) {
    if (!l.runs.empty() && l.runs[l.runs.size() - 2] == label[i])
      ++l.runs.back();
    else
      l.runs.insert(l.runs.end(), {label[i], 1u});
  }
  return l;
}

std::vector<Superpixel> superpixels_from_labels(const SuperpixelLabels& l) {
  std::vector<Superpixel> superpixels(l.count);
  std::size_t pixel = 0;
  for (std::size_t r = 0; r + 1 < l.runs.size(); r += 2) {
    const std::uint32_t s = l.runs[r];
    for (std::uint32_t k = 0; k < l.runs[r + 1]; ++k, ++pixel)
      if (s != SuperpixelLabels::kNoSuperpixel && s < l.count)
        superpixels[s].pixels.emplace_back(static_cast<int>(pixel % l.width), static_cast<int>(pixel / l.width));
  }
  return superpixels;
}
