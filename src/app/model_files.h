#pragma once

#include "src/io/model_output.h"

// Names of the model files, appended to the output directory.
inline constexpr const char* kSuperpixelModelName = "/model_superpixel.ply";
inline constexpr const char* kModelName = "/model.ply";

// How the model files name their colour properties; --ply-colors sets it.
extern PlyColorNames model_color_names;
// With --backface-test: the model before and after the last back-face removal.
inline constexpr const char* kBackfaceModelName1 = "/model_bf_removal1.ply";
inline constexpr const char* kBackfaceModelName2 = "/model_bf_removal2.ply";
