#pragma once

#include <limits>
#include <string>
#include <vector>

#include "tools/scene/render_view.h"
#include "tools/scene/scene.h"
#include "tools/scene/scene_camera.h"

// A scene for scale: a long street of objects with cameras walking along it, each seeing a
// stretch a few metres long, so that the scene grows with the number of views while every view
// and every surface keeps the same density of samples.
namespace scene {

// How the cameras stand: on a ring around the fixed sample scene, or along the street.
enum class Arrangement { ring, street };

// "ring" or "street"; false for anything else.
bool parse_arrangement(const std::string& name, Arrangement& arrangement);

// Depth a street view measures at most, like the range of a depth sensor; farther surfaces have
// no depth (0) but keep their colour.
inline constexpr double kStreetRange = 4.0;

// Street length covered by one more view.
inline constexpr double kStreetViewSpacing = 0.12;

// The street for `views` cameras: ground, a facade on each side, and on both sides a row of the
// sample scene's kinds of objects (spheres, boxes, cylinders, 4 mm sheets standing across the
// street so that cameras before and after them see both faces, 1.5 cm rods).
Scene make_street_scene(int views);

// Cameras along the street's centre line, looking alternately to its left and right side, turned
// a little along the street and down, so that each surface is seen from several directions.
std::vector<SceneCamera> make_street_cameras(int views, int width, int height);

// Radius of a sphere about the shape's centre that holds all of it.
double bound_radius(const Shape& shape);

// The shapes that can show within `range` of `eye` (all of them for an infinite range); shape
// indices of hits then refer to the returned scene.
Scene shapes_near(const Scene& scene, Vec3 eye, double range);

// Removes the depth of every pixel beyond `range` (depth 0, no shape); colours stay.
void limit_depth_range(RenderedView& view, double range);

// The file that marks a generated scene as a street and keeps its view count ("street N").
inline constexpr const char* kStreetFileName = "street.txt";

// The analytic scene a generated scene directory was made from: the street its marker names, or
// else the sample scene of the kind it names (see read_scene_kind).
Scene scene_of_directory(const std::string& scene_dir);

}  // namespace scene
