#pragma once

#include <vector>

#include "src/core/camera.h"

// How far poses lie apart, and the rigid motion of a whole set of cameras.

// Angle in degrees of the rotation between the orientations of a and b (of Ra Rb^T), from its
// skew part and trace: unlike the arc cosine of the trace alone it keeps its digits for the small
// turns of an alignment, where float rotations put the trace just above 3.
double turn_degrees(Camera const& a, Camera const& b);

// Distance between the centres of a and b, in world units.
double centre_distance(Camera const& a, Camera const& b);

// A rigid motion of the world, p -> Q p + s, Q row by row; in double, since it is fitted to the
// sums of many poses.
struct WorldMotion {
  double Q[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
  double s[3] = {0, 0, 0};
};

// The motion that carries the poses of `from` closest to those of `to`, camera by camera, in least
// squares: the sum of squared centre distances plus lever^2 times that of the orientations'
// differences (Frobenius). The centres decide where the rig stands; the orientations, weighted by
// a lever much shorter than the rig, only settle a turn the centres leave open (centres on a line).
// Both lists are equally long and not empty.
WorldMotion best_world_motion(std::vector<Camera> const& from, std::vector<Camera> const& to, double lever);

// As best_world_motion, with the lever that weighs centres and orientations as they scatter about
// the fit: the root-mean-square centre distance over that of the orientations' differences, so that
// each counts by its own spread. It is found by fitting three times, starting from longest, and
// kept between longest / 20 (so that centres on a line still settle the turn about that line) and
// longest. Given poses whose centres are off by a footprint and whose turns by a few tenths of a
// degree put the rig best by their centres when the rig is wide, which a fixed lever of the scene's
// depth leaves to the turns.
WorldMotion world_motion_by_scatter(std::vector<Camera> const& from, std::vector<Camera> const& to, double longest);

// Moves the camera with the world: it sees Q p + s where it saw p. Its R becomes R Q^T, its centre
// Q c + s, its t follows.
void move_with_world(Camera& camera, WorldMotion const& motion);
