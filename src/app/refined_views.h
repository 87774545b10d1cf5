#pragma once

#include <string>
#include <vector>

#include "src/core/camera.h"

// The views that --improve-cameras refines, written back as view files so that they can be
// reused and compared: DIR/views/NAME for the input view file NAME.

// The name of view file `file` in the views directory: its own name.
std::string refined_view_name(const std::string& file);

// Creates `directory` and checks that the refined views can go there: their names differ and none
// is a directory. Returns the reason as one line, or an empty text.
std::string prepare_refined_views(const std::string& directory, const std::vector<std::string>& view_files);

// Writes camera i as directory/refined_view_name(view_files[i]), each under a temporary name
// renamed into place; each reads back as its camera, bit for bit. Returns the reason as one line
// when a file cannot be written, else empty.
std::string write_refined_views(const std::string& directory, const std::vector<std::string>& view_files,
                                const std::vector<Camera>& cameras, const std::vector<std::string>& depth_paths);
