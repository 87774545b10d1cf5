#pragma once

#include "src/io/model_output.h"

// Names of the model files, appended to the output directory.
inline constexpr const char* kSuperpixelModelName = "/model_superpixel.ply";
inline constexpr const char* kModelName = "/model.ply";

// How the model files name their colour properties; --ply-colors sets it.
extern PlyColorNames model_color_names;
