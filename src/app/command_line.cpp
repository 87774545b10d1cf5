#include "src/app/command_line.h"

#include <unistd.h>

#include <boost/filesystem.hpp>
#include <cstring>
#include <iostream>

#include "src/app/model_files.h"
#include "src/app/my_arg.h"
#include "src/app/option_usage.h"
#include "src/app/run_error.h"
#include "src/core/settings.h"
#include "src/tiles/memory_size.h"

using option::Arg::None;
using namespace option_index;

namespace {
constexpr const char* kVersion = "1.0.0";
}  // namespace

const option::Descriptor usage[] = {
    {UNKNOWN, 0, "", "", None, "Usage: quillara [options] -- camera_00 camera_01 ... \n"},
    {UNKNOWN, 0, "", "", nullptr,
     "Required: -o (--out-dir) and --depth-avg. Each camera_NN is a view file; README.md describes its format "
     "and how to choose --depth-avg.\n"},
    {HELP, 0, "h", "help", None, "  -h, --help \tPrint this help."},
    {VERSION, 0, "", "version", None, "      --version \tPrint the version of the program."},
    {OUT_DIR, 0, "o", "out-dir", MyArg::NonEmpty, "  -o, --out-dir \tThe output directory."},
    {DEPTH_AVG, 0, "", "depth-avg", MyArg::PositiveDouble,
     "      --depth-avg \tThe average depth of the scene. This defines the radius of the smoothing kernel."},
    {ALPHA_SP, 0, "", "alpha-sp", MyArg::NonNegativeDouble,
     "      --alpha-sp \tThe strength of the data term on the superpixel level. Default is 0.1"},
    {BETA_SP, 0, "", "beta-sp", MyArg::NonNegativeDouble,
     "      --beta-sp \tThe strength of the collision term on the superpixel level. Default is 1"},
    {ALPHA, 0, "", "alpha", MyArg::NonNegativeDouble, "      --alpha \tThe strength of the data term. Default is 0.001"},
    {BETA, 0, "", "beta", MyArg::NonNegativeDouble, "      --beta \tThe strength of the collision term. Default is 1"},
    {MIN_SUPPORT_SP, 0, "", "min-support-sp", MyArg::NonNegativeDouble,
     "      --min-support-sp \tThe minimum support of a point in the superpixel level. Points with less support "
     "will be removed from the reconstruction. Default is 2.0"},
    {MIN_SUPPORT, 0, "", "min-support", MyArg::NonNegativeDouble,
     "      --min-support \tThe minimum support of a point. Points with less support will be removed from the "
     "reconstruction. Default is 3.0"},
    {SUPERPIXELS, 0, "", "superpixels", MyArg::PositiveInteger,
     "      --superpixels \tThe number of superpixels generated per image. Default is 5000"},
    {PREVIEW, 0, "", "preview", None,
     "      --preview \tAfter the run, write DIR/preview/view_NN.png per view: the input image, the rendered "
     "model and its shaded normals side by side."},
    {VISIBLE_SUPPORT, 0, "", "visible-support", MyArg::Share,
     "      --visible-support \tInstead of the fixed minimum support levels, keep a point when the other views "
     "that agree with it give this share (above 0, at most 1) of what the views that see it could give; the fine "
     "points then start on planes fitted to their own measurements, with no superpixel model, and --alpha "
     "defaults to 0.01. Suits few views. Off by default; 0.3 is a good start."},
    {VISIBLE_FLOOR, 0, "", "visible-floor", MyArg::NonNegativeDouble,
     "      --visible-floor \tWith --visible-support, the support every point needs at least; 0 keeps points that "
     "no other view can see. Default is 0.5"},
    {PLY_COLORS, 0, "", "ply-colors", MyArg::PlyColors,
     "      --ply-colors \tThe names of the colour properties in the model files: diffuse (diffuse_red, "
     "diffuse_green, diffuse_blue) or standard (red, green, blue, which common point-cloud readers expect). "
     "Default is diffuse"},
    {IMPROVE_CAMERAS, 0, "", "improve-cameras", None,
     "      --improve-cameras \tCorrect the turn and position of every camera against the images and measured "
     "depth maps of the other views, in three passes, each followed by the model made anew from the measured "
     "depth maps; the rig stays where the given poses put it. Writes the refined views to DIR/views/. Needs "
     "the device BLAS."},
    {BACKFACE_TEST, 0, "", "backface-test", None,
     "      --backface-test \tRemove points that show their back to a view, before each support filter of the "
     "fine model, and write the model before and after the second removal."},
    {MAX_MEMORY, 0, "", "max-memory", MyArg::MemorySize,
     "      --max-memory \tFuse in tiles of space, one after another, so that the run needs at most this much "
     "memory: bytes, or with K, M or G, such as 8G."},
    {0, 0, nullptr, nullptr, nullptr, nullptr},
};

const unsigned required_options[] = {DEPTH_AVG, OUT_DIR, 0};

SupportRule support_rule;
bool alpha_given = false;

namespace {

// The path in double quotes; an inner double quote or ampersand is escaped with an ampersand.
std::string quoted_path(const std::string& path) {
  std::string text = "\"";
  for (char c : path) {
    if (c == '"' || c == '&') text += '&';
    text += c;
  }
  return text + "\"";
}

}  // namespace

std::vector<std::string> parse_command_line(int argc, char* argv[]) {
  // Skip the program's own name; an empty vector leaves nothing to parse.
  const int numargs = argc > 0 ? argc - 1 : 0;
  const char* const* args = argc > 0 ? argv + 1 : argv;

  option::Stats stats(usage, numargs, args);
  std::vector<option::Option> options(stats.options_max);
  std::vector<option::Option> buffer(stats.buffer_max);
  option::Parser parser(usage, numargs, args, options.data(), buffer.data(), static_cast<int>(stats.buffer_max));
  if (parser.error) throw CommandLineExit{1};  // the check function has said why

  if (options[HELP] || argc <= 1) {
    option::PrintUsageImplementation::printUsage([](std::string_view text) { std::cout << text; }, usage, 80, 50,
                                                 75);
    throw CommandLineExit{0};
  }

  if (options[VERSION]) {
    std::cout << "quillara " << kVersion << "\n";
    throw CommandLineExit{0};
  }

  // Unknown options pass, but a typing error should not go unnoticed.
  for (const option::Option* o = &options[UNKNOWN]; o != nullptr && *o; o = o->next)
    std::cerr << "warning: unknown option '" << std::string_view(o->name, static_cast<std::size_t>(o->namelen))
              << "' is ignored\n";

  // A missing required option ends the run with status 0 on purpose.
  if (MyArg::testForMissingOptions(required_options, options.data(), usage, false)) throw CommandLineExit{0};
  if (options[MAX_MEMORY])
    for (unsigned whole_model : {PREVIEW, VISIBLE_SUPPORT, IMPROVE_CAMERAS, BACKFACE_TEST})
      if (options[whole_model])
        throw RunError("--max-memory cannot be combined with " +
                       std::string(options[whole_model].name, options[whole_model].namelen) +
                       ": that stage renders the whole model into every view");

  output_directory = options[OUT_DIR].arg;
  improve_cameras = static_cast<bool>(options[IMPROVE_CAMERAS]);
  use_backface_visibility_test = static_cast<bool>(options[BACKFACE_TEST]);

  // The first occurrence of each option is the one that counts.
  float* const float_settings[] = {&average_depth, &alpha_sp,       &beta_sp,    &alpha,
                                   &beta,          &min_support_sp, &min_support};
  for (unsigned index = DEPTH_AVG; index <= MIN_SUPPORT; ++index)
    if (options[index]) *float_settings[index - DEPTH_AVG] = static_cast<float>(MyArg::value<double>(options[index]));
  alpha_given = static_cast<bool>(options[ALPHA]);
  if (options[SUPERPIXELS]) superpixel_count = MyArg::value<int>(options[SUPERPIXELS]);
  write_preview = static_cast<bool>(options[PREVIEW]);
  if (options[MAX_MEMORY]) max_memory = *parse_memory_size(options[MAX_MEMORY].arg);
  if (options[VISIBLE_SUPPORT]) support_rule.share = static_cast<float>(MyArg::value<double>(options[VISIBLE_SUPPORT]));
  if (options[VISIBLE_FLOOR]) support_rule.floor = static_cast<float>(MyArg::value<double>(options[VISIBLE_FLOOR]));
  if (options[PLY_COLORS])
    model_color_names = std::strcmp(options[PLY_COLORS].arg, "standard") == 0 ? PlyColorNames::standard
                                                                              : PlyColorNames::diffuse;

  use_NCC = true;
  char host_name[2048] = {};
  gethostname(host_name, sizeof(host_name) - 1);
  debug_processor_name = host_name;
  USE_GPU = true;

  // Everything behind the first "--" of the whole vector is a view file, whatever it looks like.
  for (int i = 0; i < argc; ++i)
    if (std::strcmp(argv[i], "--") == 0) return std::vector<std::string>(argv + i + 1, argv + argc);
  return {};
}

void check_view_files(const std::vector<std::string>& view_files) {
  // Only existence counts (a directory passes); other status failures throw.
  for (const std::string& file : view_files)
    if (!boost::filesystem::exists(boost::filesystem::status(file)))
      throw RunError("file " + quoted_path(file) + " does not exist");
  if (view_files.size() < 2) throw RunError("not enough files");
  n_keyframes = static_cast<int>(view_files.size());
}
