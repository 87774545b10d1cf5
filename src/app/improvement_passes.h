#pragma once

#include <functional>
#include <vector>

#include "device/vector_types.h"
#include "image/CMatrix.h"
#include "src/core/camera.h"
#include "src/core/particle.h"
#include "src/improve/improvement_error.h"

// The passes that --improve-cameras adds to a run: every camera is aligned to the model of the
// other views and to its overlaps with its neighbours, the rig kept where its given poses put it
// (pose step), and the model is made anew from the measured depth maps placed with the new poses
// (model step).

// Closes a pass: forms the name of the pass's model, which is not written, and counts the pass.
void close_pass(int& pass);

// The model step of a pass: first is true in the first pass; before holds the poses the cameras
// had before the pass's pose step.
using ModelStep = std::function<void(bool first, const std::vector<Camera>& before)>;

// The schedule that follows the first filter step: three passes of pose step and model_step, each
// closed by close_pass, with the time of each step printed. The last model step is left out when
// the last pose step moved every camera by less than a pixel: the model moves with the
// cameras in the pose step. depthmaps are the measured maps; they stay as they are. Throws
// ImprovementError, naming the pass, when a pass cannot go on.
void run_improvement_passes(std::vector<Particle>& particles, std::vector<float>& offsets,
                            std::vector<float3>& normals, const std::vector<Camera*>& cameras,
                            const std::vector<CMatrix<float>>& depthmaps, const ModelStep& model_step, int& pass);
