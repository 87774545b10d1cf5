#pragma once

#include <array>
#include <cstddef>
#include <type_traits>
#include <vector>

// Plain row-major image buffers for the superpixel layer. The caller builds an image of a given
// size and fills it pixel by pixel; pixel number i is y * width + x.
namespace slimage {

// Element type and channel count of an image.
template <typename T, unsigned Channels>
struct Traits {
  using element_t = T;
  static constexpr unsigned channels = Channels;
  // One-channel images hold plain values; multi-channel images hold one array per pixel.
  using pixel_t = std::conditional_t<Channels == 1, T, std::array<T, Channels>>;
};

template <typename Tr>
class Image {
 public:
  using element_t = typename Tr::element_t;
  using pixel_t = typename Tr::pixel_t;
  static constexpr unsigned channels = Tr::channels;

  Image() = default;
  // All pixels start at zero.
  Image(unsigned width, unsigned height)
      : width_(width), height_(height), pixels_(static_cast<std::size_t>(width) * height, pixel_t{}) {}

  unsigned width() const { return width_; }
  unsigned height() const { return height_; }
  std::size_t size() const { return pixels_.size(); }
  bool empty() const { return pixels_.empty(); }

  pixel_t& operator()(unsigned x, unsigned y) { return pixels_[index(x, y)]; }
  const pixel_t& operator()(unsigned x, unsigned y) const { return pixels_[index(x, y)]; }
  pixel_t& operator[](std::size_t i) { return pixels_[i]; }
  const pixel_t& operator[](std::size_t i) const { return pixels_[i]; }

  // Channel c of pixel (x, y); for one-channel images c must be 0.
  element_t& channel(unsigned x, unsigned y, unsigned c) { return channel_of(pixels_[index(x, y)], c); }
  element_t channel(unsigned x, unsigned y, unsigned c) const {
    return channel_of(pixels_[index(x, y)], c);
  }

  pixel_t* data() { return pixels_.data(); }
  const pixel_t* data() const { return pixels_.data(); }

 private:
  std::size_t index(unsigned x, unsigned y) const { return static_cast<std::size_t>(y) * width_ + x; }
  template <typename P>  // pixel_t or const pixel_t
  static auto& channel_of(P& p, unsigned c) {
    if constexpr (channels == 1) {
      (void)c;
      return p;
    } else {
      return p[c];
    }
  }

  unsigned width_ = 0;
  unsigned height_ = 0;
  std::vector<pixel_t> pixels_;
};

using Image3ub = Image<Traits<unsigned char, 3>>;
using Image1ui16 = Image<Traits<unsigned short, 1>>;

}  // namespace slimage
