#pragma once

#include "src/io/model_output.h"

// Names of the model files, appended to the output directory.
inline constexpr const char* kSuperpixelModelName = "/model_superpixel.ply";
inline constexpr const char* kModelName = "/model.ply";
// With --backface-test: the model before and after the last back-face removal.
inline constexpr const char* kBackfaceModelName1 = "/model_bf_removal1.ply";
inline constexpr const char* kBackfaceModelName2 = "/model_bf_removal2.ply";

// How the model files name their colour properties; --ply-colors sets it.
extern PlyColorNames model_color_names;

// Creates output_directory with its parents, without a shell, so that the name is taken as it
// stands, and checks that the models the run will write (with the switches in force) can be
// written there. Throws RunError with the reason otherwise: a directory that cannot hold the
// models ends the run before the work.
void make_output_directory();
