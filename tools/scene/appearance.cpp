#include "tools/scene/appearance.h"

#include <algorithm>
#include <numbers>

#include "tools/scene/texture.h"

namespace scene {
namespace {

Vec3 mix(Vec3 a, Vec3 b, double f) { return a + f * (b - a); }

Vec3 clamped(Vec3 c) { return {std::clamp(c.x, 0.0, 1.0), std::clamp(c.y, 0.0, 1.0), std::clamp(c.z, 0.0, 1.0)}; }

double smoothstep(double a, double b, double v) {
  const double f = std::clamp((v - a) / (b - a), 0.0, 1.0);
  return f * f * (3.0 - 2.0 * f);
}

// Grain at four scales (cells of 33, 11, 3.7 and 1.7 cm), about 0.5 on average.
double layered_grain(Vec3 p) {
  return 0.40 * value_noise(3.0 * p) + 0.30 * value_noise(9.0 * p) + 0.18 * value_noise(27.0 * p) +
         0.12 * value_noise(60.0 * p);
}

// The texture's contrast: low in patches of a few decimetres (about a sixth of every surface),
// where a surface is nearly uniform, full elsewhere.
double texture_contrast(Vec3 p) {
  const Vec3 shifted{p.x + 17.3, p.y - 5.1, p.z + 9.7};  // away from the grain's lattice
  return 0.08 + 0.92 * smoothstep(0.36, 0.46, value_noise(2.2 * shifted));
}

Vec3 photograph_surface(const Shape& s, const Hit& hit) {
  const Material& m = s.material;
  const double contrast = texture_contrast(hit.point);
  const Vec3 middle = 0.5 * (m.colour_a + m.colour_b);
  const Vec3 base = pattern_choice(s, hit, m.pattern, m.scale) ? m.colour_b : m.colour_a;
  const Vec3 patterned = mix(middle, base, contrast);
  const double grain = 1.0 + contrast * 1.6 * (layered_grain(hit.point) - 0.5);
  // Exposed with headroom, as a camera would be: the brightest texture stays below white.
  return clamped(0.75 * grain * diffuse_shade(hit.normal) * patterned);
}

// Flat 8 cm checks where the material has checks or uniform faces; stripes vary smoothly (a sine
// across a band pair), so that only their slopes carry texture.
Vec3 checks_stripes_surface(const Shape& s, const Hit& hit) {
  const Material& m = s.material;
  double f;
  if (m.pattern == Pattern::stripes) {
    const double z = to_local(s, hit.point).z;
    f = 0.5 + 0.5 * std::sin(std::numbers::pi * (z / m.scale + 0.37));
  } else {
    f = pattern_choice(s, hit, Pattern::checker, 0.08);
  }
  return clamped(diffuse_shade(hit.normal) * mix(m.colour_a, m.colour_b, f));
}

}  // namespace

bool parse_appearance(const std::string& name, Appearance& appearance) {
  for (Appearance a : {Appearance::standard, Appearance::photograph, Appearance::checks_stripes})
    if (name == appearance_name(a)) {
      appearance = a;
      return true;
    }
  return false;
}

std::string appearance_name(Appearance appearance) {
  switch (appearance) {
    case Appearance::photograph: return "photograph";
    case Appearance::checks_stripes: return "checks-stripes";
    case Appearance::standard: break;
  }
  return "standard";
}

Vec3 appearance_surface_colour(Appearance appearance, const Shape& shape, const Hit& hit) {
  switch (appearance) {
    case Appearance::photograph: return photograph_surface(shape, hit);
    case Appearance::checks_stripes: return checks_stripes_surface(shape, hit);
    case Appearance::standard: break;
  }
  return surface_colour(shape, hit);
}

Vec3 appearance_background_colour(Appearance appearance, Vec3 direction) {
  if (appearance != Appearance::photograph) return background_colour(direction);
  // Dark cloth or shadow behind the objects: nearly uniform, a faint gradient with height.
  const double up = std::clamp(normalize(direction).z, -1.0, 1.0);
  return {0.045 + 0.01 * up, 0.045 + 0.01 * up, 0.05 + 0.01 * up};
}

}  // namespace scene
