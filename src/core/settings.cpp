#include "src/core/settings.h"

std::string output_directory;
float average_depth = -1.0f;
float alpha_sp = 0.1f;
float beta_sp = 1.0f;
float alpha = 0.001f;
float beta = 1.0f;
float min_support_sp = 2.0f;
float min_support = 3.0f;
int superpixel_count = 5000;
float gradient_descent_timestep_sp = 0.02f;
float gradient_descent_timestep = 0.005f;
int n_keyframes = 50;
float depth_range_min = -1.0f;
float depth_range_max = -1.0f;
bool use_NCC = false;
bool USE_GPU = false;
bool improve_cameras = false;
bool use_backface_visibility_test = false;
bool use_normal_dot_weight = true;
bool debug_depthmap = true;
bool debug_write_superpixel_image = false;
bool debug_images_camera_pose = false;
int debug_write = 0;
std::string debug_processor_name;
int debug_lumvik_particle_iteration = 0;
bool write_preview = false;
unsigned long long max_memory = 0;
