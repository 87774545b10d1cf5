#pragma once

#include <vector>

#include "device/vector_types.h"
#include "image/CMatrix.h"
#include "src/core/camera.h"
#include "src/core/particle.h"
#include "src/pose/align_to_model.h"

// How the cameras of a run are aligned to each other.
struct RigAlignment {
  ModelAlignment model;  // the alignment of one camera to the model of the others
  int neighbours = 4;    // views whose overlap with a camera takes part in the joint step, at most
  // In keeping the rig where its given poses put it, turns weigh like shifts of a length (world
  // units) found from how the given centres and orientations scatter about the fit, this at most:
  // a turn of the camera moves what it sees at the scene's depth by that much.
  float lever = 1.0f;
};

// The pose step of --improve-cameras, in three parts:
// 1. Every camera is aligned to the model without its own particles (which would agree with it
//    wherever it stands), against its image and its measured depth map.
// 2. One joint Gauss-Newton step for all cameras over the overlaps of each camera with its nearest
//    views (their measured depths): aligning each camera to its neighbours alone, one after the
//    other, lets an error that runs smoothly around the rig shrink only a little per pass; solved
//    together, the cameras agree in one step.
// 3. The whole rig is moved, as one rigid body, to where its poses lie closest to `given` (the poses
//    the run was given), centres and turns each weighed by their own scatter: the images and depth
//    maps fix how the cameras stand to each other, but not where the rig stands, and only the
//    given poses say that.
// The particles of each view move with their camera. Prints per camera how far each part turned
// and moved it. Throws ImprovementError when a camera has no model to align to.
void align_cameras(std::vector<Particle>& particles, std::vector<float> const& offsets, std::vector<float3>& normals,
                   std::vector<Camera*> const& cameras, std::vector<CMatrix<float>> const& measured_depthmaps,
                   std::vector<Camera> const& given, RigAlignment const& options);
