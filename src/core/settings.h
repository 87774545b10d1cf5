#pragma once

#include <string>

// Run-level settings: program-wide, initialised before main runs; the command line changes the
// ones that have an option, the rest are fixed when the program is built.

extern std::string output_directory;
extern float average_depth;
extern float alpha_sp;
extern float beta_sp;
extern float alpha;
extern float beta;
extern float min_support_sp;
extern float min_support;
extern int superpixel_count;
extern float gradient_descent_timestep_sp;
extern float gradient_descent_timestep;
extern int n_keyframes;
extern float depth_range_min;
extern float depth_range_max;
extern bool use_NCC;
extern bool USE_GPU;
extern bool improve_cameras;
extern bool use_backface_visibility_test;
extern bool use_normal_dot_weight;
extern bool debug_depthmap;
extern bool debug_write_superpixel_image;
extern bool debug_images_camera_pose;
extern int debug_write;
extern std::string debug_processor_name;
extern int debug_lumvik_particle_iteration;

// Set by --preview: render the model into every view after the run (not a filter setting).
extern bool write_preview;

// Set by --max-memory: the bytes a run may use, fused in tiles of space; 0 fuses in one piece.
extern unsigned long long max_memory;
