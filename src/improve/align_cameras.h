#pragma once

#include <vector>

#include "device/vector_types.h"
#include "image/CMatrix.h"
#include "src/core/camera.h"
#include "src/core/particle.h"
#include "src/pose/align_to_model.h"

// The pose step of --improve-cameras. Every camera is aligned to the model without its own
// particles (which would agree with it wherever it stands), against its image and its measured
// depth map. Then the whole rig is moved, as one rigid body, back to where its poses lie closest to
// `given` (the poses the run was given): the images and depth maps fix how the cameras stand to
// each other, but not where the rig as a whole stands, and without this the common part of the
// corrections would move the rig away. Prints how far each camera turned and moved, and the rig's
// move back. Throws ImprovementError when a camera has no model to align to.
void align_cameras(std::vector<Particle>& particles, std::vector<float> const& offsets,
                   std::vector<float3>& normals, std::vector<Camera*> const& cameras,
                   std::vector<CMatrix<float>> const& measured_depthmaps, std::vector<Camera> const& given,
                   ModelAlignment const& options);
