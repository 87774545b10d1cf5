#pragma once

#include <vector>

#include "image/CMatrix.h"
#include "src/pose/gauss_newton_step.h"
#include "src/core/camera.h"
#include "src/render/points.h"

// How a camera is aligned to a model of the other views.
struct ModelAlignment {
  float pyramid_factor = 0.5f;  // size ratio of neighbouring pyramid levels, in (0, 1)
  int min_height = 110;         // rows of the coarsest level, at least (a lower image has one level)
  // Disks less than this many radii behind the nearest depth are blended into the rendered colour
  // and depth: a model fused from slightly wrong poses is a layer a few disks thick.
  float blend_radii = 3.0f;
  // Weight of the depth rows (pixel footprints) against the photometric ones (colour in 0..1),
  // and the distance in footprints beyond which a pixel's depth row is an outlier.
  float depth_weight = 0.2f;
  float depth_threshold = 4.0f;
  int steps_per_round = 3;  // Gauss-Newton steps between renderings
  int max_rounds = 20;      // renderings per level at most
  int max_full_rounds = 20; // renderings at the image's own size at most
  // Align at the image's own size alone: for a camera that is already within a pixel or so, which
  // the coarse levels cannot improve on.
  bool full_size_only = false;
  // A level ends when a round moves the image by less than this many of the level's pixels, for a
  // scene at scene_depth (world units).
  float converged_pixels = 0.05f;
  float scene_depth = 1.0f;
};

// Moves camera so that the model, rendered from it, agrees with its image (photometric rows, one
// per colour and pixel) and with its own measured depth map (one row per pixel: the distance of
// the model's surface from the measured point on the same ray, along the model's normal), by
// Gauss-Newton over a coarse-to-fine pyramid with the model re-rendered from the current pose
// between rounds. The model should not hold the camera's own particles: they would agree with it
// wherever it stands. measured_depth has the camera's size; 0 marks a pixel without depth. Needs
// the device BLAS loaded. Returns the rounds run at each level, coarsest first. Throws
// std::runtime_error naming the camera on bad arguments.
std::vector<int> align_camera_to_model(Camera& camera, Points const& model, CMatrix<float> const& measured_depth,
                                       ModelAlignment const& options);

// The normal equations that a Gauss-Newton step of that alignment would solve at the camera's
// current pose, at full size, for each of the models in turn: H = J^T J and g = -J^T r in the
// camera's parameters (angles, then translation, of a motion of its own frame). Needs the BLAS.
std::vector<NormalEquations> alignment_equations(Camera const& camera, std::vector<Points const*> const& models,
                                                 CMatrix<float> const& measured_depth, ModelAlignment const& options);
