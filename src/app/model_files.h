#pragma once

// Names of the model files, appended to the output directory.
inline constexpr const char* kSuperpixelModelName = "/model_superpixel.ply";
inline constexpr const char* kModelName = "/model.ply";
