#include "dasp/connectivity.h"

#include <stdexcept>

namespace dasp {

namespace {

// Calls visit(j) for each 4-neighbour j of pixel i.
template <typename Visit>
void for_neighbours(std::size_t i, unsigned width, unsigned height, Visit&& visit) {
  const unsigned x = static_cast<unsigned>(i % width), y = static_cast<unsigned>(i / width);
  if (x > 0) visit(i - 1);
  if (x + 1 < width) visit(i + 1);
  if (y > 0) visit(i - width);
  if (y + 1 < height) visit(i + width);
}

}  // namespace

void enforce_connectivity(std::vector<int>& labels, unsigned width, unsigned height, int cluster_count) {
  const std::size_t n = labels.size();
  // Connected pieces of equal label, numbered in scan order of their first pixel.
  std::vector<int> piece(n, -1);
  std::vector<std::size_t> piece_size;
  std::vector<int> piece_label;
  std::vector<std::size_t> stack;
  for (std::size_t start = 0; start < n; ++start) {
    if (piece[start] >= 0 || labels[start] < 0) continue;
    const int id = static_cast<int>(piece_size.size());
    const int label = labels[start];
    std::size_t size = 0;
    piece[start] = id;
    stack.push_back(start);
    while (!stack.empty()) {
      const std::size_t i = stack.back();
      stack.pop_back();
      ++size;
      for_neighbours(i, width, height, [&](std::size_t j) {
        if (piece[j] < 0 && labels[j] == label) {
          piece[j] = id;
          stack.push_back(j);
        }
      });
    }
    piece_size.push_back(size);
    piece_label.push_back(label);
  }

  // The largest piece of each cluster; strict comparison keeps the earliest on a tie.
  std::vector<int> largest(static_cast<std::size_t>(cluster_count), -1);
  for (std::size_t p = 0; p < piece_size.size(); ++p) {
    int& best = largest[static_cast<std::size_t>(piece_label[p])];
    if (best < 0 || piece_size[p] > piece_size[static_cast<std::size_t>(best)]) best = static_cast<int>(p);
  }

  // Kept pixels seed a breadth-first growth, in scan order, into all other pixels.
  std::vector<std::size_t> queue;
  queue.reserve(n);
  for (std::size_t i = 0; i < n; ++i) {
    if (labels[i] >= 0 && largest[static_cast<std::size_t>(labels[i])] == piece[i]) {
      queue.push_back(i);
    } else {
      labels[i] = -1;
    }
  }
  if (queue.empty() && n > 0) throw std::runtime_error("dasp::enforce_connectivity: no labelled pixel");
  for (std::size_t head = 0; head < queue.size(); ++head) {
    const std::size_t i = queue[head];
    for_neighbours(i, width, height, [&](std::size_t j) {
      if (labels[j] < 0) {
        labels[j] = labels[i];
        queue.push_back(j);
      }
    });
  }
}

}  // namespace dasp
