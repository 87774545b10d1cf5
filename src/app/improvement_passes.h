#pragma once

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "device/vector_types.h"
#include "image/CMatrix.h"
#include "src/core/camera.h"
#include "src/core/particle.h"

// The passes that --improve-cameras adds to a run: each camera is aligned to the rendered model
// (pose step), the depth maps are re-rendered from the model and improved by photo-consistency
// (refine step), and the fine model is made anew from them and filtered.

// A pass could not go on: the model is empty, or the pose alignment or the refinement refused
// its input. The text names the pass and the cause, as one line for standard error.
class ImprovementError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Start-up with --improve-cameras: reports the device's free and total memory and opens the
// device BLAS. Returns the reason as one line when the BLAS cannot be opened, else empty.
std::string start_pose_device();

// Closes a pass: forms the name of the pass's model, which is not written, and counts the pass.
void close_pass(int& pass);

// Aligns every camera to the model, in order. pass numbers the viewer hook calls.
void pose_step(const std::vector<Particle>& particles, const std::vector<float>& offsets,
               const std::vector<float3>& normals, const std::vector<Camera*>& cameras, int pass);

// Renders the model into every view, refines the rendered depth maps (with the given radius),
// replaces depthmaps by the improved maps and makes the particles anew from the trusted pixels of
// the rendered maps.
void refine_step(std::vector<Particle>& particles, std::vector<float>& offsets, std::vector<float3>& normals,
                 const std::vector<Camera*>& cameras, std::vector<CMatrix<float>>& depthmaps, float radius);

// The schedule that follows the first filter step: three passes of pose step, refine step (at
// refine_radius) and filter_step, each closed by close_pass. Throws ImprovementError when a pass cannot go on.
void run_improvement_passes(std::vector<Particle>& particles, std::vector<float>& offsets,
                            std::vector<float3>& normals, const std::vector<Camera*>& cameras,
                            std::vector<CMatrix<float>>& depthmaps, float refine_radius,
                            const std::function<void()>& filter_step, int& pass);
