#pragma once

#include <string>
#include <vector>

#include "device/vector_types.h"
#include "src/core/camera.h"
#include "src/core/particle.h"

// Renders the model into every view and writes directory/view_NN.png (NN the view's index, two
// digits at least): the view's colour image, the rendered model and its shaded normals side by
// side at the view's size, so that a glance shows what was reconstructed and where it is
// missing. Creates the directory. Returns the number of images written.
int write_preview_images(const std::vector<Particle>& particles, const std::vector<float>& offsets,
                         const std::vector<float3>& normals, const std::vector<Camera*>& cameras,
                         const std::string& directory);

// Before the work: the preview directory must be a directory or creatable, and none of the
// view_NN.png paths of `views` views a directory. Throws RunError with the reason.
void check_preview_directory(const std::string& directory, int views);
