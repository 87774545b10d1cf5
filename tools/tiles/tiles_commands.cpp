#include "tools/tiles/tiles_commands.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <set>
#include <sstream>
#include <stdexcept>

#include "src/app/command_line.h"
#include "src/app/model_files.h"
#include "src/app/my_arg.h"
#include "src/app/run_error.h"
#include "src/app/stage_options.h"
#include "src/core/settings.h"
#include "src/io/temporary_file.h"
#include "src/tiles/fuse_tile.h"
#include "src/tiles/memory_size.h"
#include "src/tiles/run_plan.h"
#include "src/tiles/tile_files.h"
#include "src/tiles/view_source.h"
#include "tools/cli/arguments.h"
#include "tools/cli/shell_quote.h"
#include "tools/tiles/plan_file.h"

namespace tiles {
namespace {

std::string in_quotes(const std::string& path) { return "\"" + path + "\""; }
std::string plan_path(const std::string& dir) { return dir + "/plan.json"; }
std::string scaffold_path(const std::string& dir) { return dir + "/scaffold.bin"; }
std::string result_path(const std::string& dir, std::size_t k) { return dir + "/tiles/tile_" + std::to_string(k) + ".bin"; }

void write_text_atomically(const std::string& path, const std::string& text) {
  TemporaryFile file(path);
  std::ofstream out(file.path, std::ios::binary | std::ios::trunc);
  out << text;
  out.close();
  if (!out) throw std::runtime_error("cannot write " + in_quotes(path));
  file.commit(path);
}

PlanFile read_plan(const std::string& dir) {
  std::ifstream in(plan_path(dir), std::ios::binary);
  if (!in) throw std::runtime_error(in_quotes(plan_path(dir)) + " is missing: plan the run first");
  std::stringstream text;
  text << in.rdbuf();
  try {
    return parse_plan(text.str());
  } catch (const std::runtime_error& e) {
    throw std::runtime_error(in_quotes(plan_path(dir)) + ": " + e.what());
  }
}

// Sets the run-level settings through quillara's own parser and returns the view files. The
// arguments were checked on their way in; should the parser still refuse them, it has said why.
std::vector<std::string> apply_run_options(std::vector<std::string> args, const std::string& source) {
  args.insert(args.begin(), "quillara-tiles");
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(a.data());
  try {
    return parse_command_line(static_cast<int>(argv.size()), argv.data());
  } catch (const CommandLineExit&) {
    throw std::runtime_error("the options " + source + " are not a run's");
  }
}

// Sets the run-level settings from the options kept in the plan; returns the view files.
std::vector<std::string> restore_settings(const PlanFile& plan, const std::string& dir) {
  std::error_code ec;
  std::filesystem::current_path(plan.working_directory, ec);
  if (ec)
    throw std::runtime_error("cannot enter the plan's working directory " + in_quotes(plan.working_directory) + ": " +
                             ec.message());
  for (const PlannedView& v : plan.views)
    if (const std::string change = view_change(v); !change.empty())
      throw std::runtime_error("view file " + in_quotes(v.file) + ": " + change + " since " + in_quotes(plan_path(dir)) +
                               " was made; plan again");
  std::vector<std::string> args = {"--out-dir", dir};
  args.insert(args.end(), plan.arguments.begin(), plan.arguments.end());
  std::vector<std::string> views = apply_run_options(args, "in " + in_quotes(plan_path(dir)));
  depth_range_max = plan.depth_range_max;
  return views;
}

// The one word a command takes besides its options: the plan's directory, made absolute.
std::string directory_argument(const std::vector<std::string>& words, const char* command, std::size_t most) {
  if (words.empty() || words.size() > most)
    throw cli::UsageError(std::string(command) + " takes the plan's directory" + (most > 1 ? " and a tile number" : ""));
  return std::filesystem::absolute(words[0]).lexically_normal().string();
}

std::vector<std::string> command_words(const std::vector<std::string>& args) {
  return cli::parse_command_line(args, {}).words;
}

std::size_t tile_index(const std::vector<std::string>& words, const PlanFile& plan) {
  std::string text;
  if (words.size() > 1) text = words[1];
  else if (const char* id = std::getenv("SLURM_ARRAY_TASK_ID")) text = id;
  else throw cli::UsageError("run needs a tile number, or SLURM_ARRAY_TASK_ID");
  std::size_t k = 0;
  if (!parse_number(text, k) || k >= plan.tiles.size())
    throw std::runtime_error("tile " + in_quotes(text) + " is not one of the plan's " + std::to_string(plan.tiles.size()) +
                             " (0 to " + std::to_string(plan.tiles.size() - 1) + ")");
  return k;
}

std::vector<std::size_t> missing_tiles(const std::string& dir, const PlanFile& plan) {
  std::vector<std::size_t> missing;
  for (std::size_t k = 0; k < plan.tiles.size(); ++k) try {
      tile_result_points(result_path(dir, k));
    } catch (const TileFileError&) {
      missing.push_back(k);
    }
  return missing;
}

std::string slurm_script(const std::string& dir, const std::string& program, const PlanFile& plan) {
  std::uint64_t most = 0;
  for (std::uint64_t b : plan.tile_bytes) most = std::max(most, b);
  std::ostringstream s;
  s << "#!/bin/sh\n"
    << "# One task per tile of " << plan_path(dir) << "; each writes tiles/tile_K.bin.\n"
    << "#SBATCH --job-name=quillara-tiles\n"
    << "#SBATCH --array=0-" << plan.tiles.size() - 1 << "\n"
    << "#SBATCH --mem=" << (most + (1 << 20) - 1) / (1 << 20) << "M\n"
    << "#SBATCH --output=" << dir << "/slurm/tile_%a.log\n"
    << "# Memory each tile needs:";
  for (std::size_t k = 0; k < plan.tile_bytes.size(); ++k)
    s << (k % 8 == 0 ? "\n#  " : "") << " " << k << ": " << format_memory_size(plan.tile_bytes[k]);
  s << "\nexec " << shell_quote(program) << " run " << shell_quote(dir) << "\n";
  return s.str();
}

// What plan takes: its own options, and quillara's, checked by quillara's own checks and passed on.
struct PlanArguments {
  std::string dir;
  int tiles = 0;
  float halo = kHaloPixels;
  std::vector<std::string> run_options;  // quillara's options as given, without the output directory
  std::set<unsigned> given;              // their rows
  std::vector<std::string> views;
};

// The stages that render the whole model into every view cannot run on tiles.
bool needs_whole_model(unsigned row) {
  using namespace option_index;
  return row == PREVIEW || row == VISIBLE_SUPPORT || row == VISIBLE_FLOOR || row == IMPROVE_CAMERAS ||
         row == BACKFACE_TEST;
}

std::string option_name(unsigned index) {
  for (const option::Descriptor* row = usage; !option::is_table_end(*row); ++row)
    if (row->index == index && row->longopt[0] != 0) return std::string("--") + row->longopt;
  return "?";
}

PlanArguments parse_plan_arguments(const std::vector<std::string>& args) {
  using namespace option_index;
  PlanArguments a;
  std::vector<cli::Option> options = {
      {"--out-dir", "-o", cli::store_text(a.dir, "a directory")},
      {"--tiles", "", cli::store_number(a.tiles, 1, 100000, "a whole number from 1 to 100000")},
      {"--halo", "", cli::store_number(a.halo, 1.0f, 100000.0f, "a number of pixels from 1 to 100000")}};
  for (const option::Descriptor* row = usage; !option::is_table_end(*row); ++row) {
    if (row->longopt[0] == 0 || row->index == OUT_DIR || row->index == HELP || row->index == VERSION) continue;
    options.push_back({std::string("--") + row->longopt, "", [&a, row](const cli::OptionValue& v) {
                         if (needs_whole_model(row->index))
                           throw cli::UsageError(v.option + " cannot be used with tiles: it needs the whole model");
                         if (const std::string c = MyArg::complaint(*row, v.option, v.text); !c.empty())
                           throw cli::UsageError(c);
                         a.run_options.insert(a.run_options.end(), {v.option, v.text});
                         a.given.insert(row->index);
                       }});
  }
  const cli::CommandLine line = cli::parse_command_line(args, options, /*files_behind_dashes=*/true);
  cli::expect_no_words(line);
  if (a.dir.empty()) throw cli::UsageError("plan needs -o DIR");
  for (const unsigned* r = required_options; *r != 0; ++r)
    if (*r != OUT_DIR && a.given.count(*r) == 0) throw cli::UsageError("plan needs " + option_name(*r));
  if ((a.given.count(MAX_MEMORY) > 0) == (a.tiles > 0))
    throw cli::UsageError("plan needs either --max-memory SIZE or --tiles N");
  if (!line.dashes) throw cli::UsageError("plan needs the view files behind --");
  a.views = line.files;
  return a;
}

}  // namespace

void plan_command(const std::vector<std::string>& args, const std::string& program_path) {
  const PlanArguments a = parse_plan_arguments(args);
  PlanFile plan;
  plan.arguments = a.run_options;
  plan.arguments.push_back("--");
  plan.arguments.insert(plan.arguments.end(), a.views.begin(), a.views.end());
  std::vector<std::string> run_args = {"--out-dir", a.dir};
  run_args.insert(run_args.end(), plan.arguments.begin(), plan.arguments.end());
  const std::vector<std::string> view_files = apply_run_options(run_args, "given");
  check_view_files(view_files);
  make_output_directory();
  const std::string dir = std::filesystem::absolute(output_directory).lexically_normal().string();

  plan.working_directory = std::filesystem::current_path().string();
  for (const std::string& v : view_files) plan.views.push_back(stamp_view(v));
  Scaffold scaffold = read_scaffold(static_cast<int>(view_files.size()), view_files_source(view_files));
  const StageOptions stages = make_stage_options(scaffold.cameras[0]);
  check_scaffold_budget(max_memory, scaffold.particles.size());
  filter_scaffold(scaffold, stages.superpixel_filter, stages.superpixel_support);
  const RunPlan run = plan_run(scaffold, max_memory, a.tiles, stages.pixel_filter, stages.radii.pixel, a.halo);
  plan.budget = max_memory;
  plan.min_tiles = a.tiles;
  plan.depth_range_max = depth_range_max;
  plan.halo = run.halo;
  plan.stride = run.stride;
  plan.tiles = run.tiles;
  for (const Tile& t : run.tiles) plan.tile_bytes.push_back(tile_bytes(scaffold, t));

  // A new plan makes the results of an old one meaningless. The old plan goes first, so that a
  // planning stopped half way leaves no plan beside the new scaffold.
  std::filesystem::remove(plan_path(dir));
  std::filesystem::remove_all(dir + "/tiles");
  std::filesystem::create_directories(dir + "/tiles");
  std::filesystem::create_directories(dir + "/slurm");
  write_scaffold(scaffold_path(dir), scaffold);
  write_text_atomically(dir + "/slurm/array.sh", slurm_script(dir, program_path, plan));
  write_text_atomically(plan_path(dir), format_plan(plan));

  std::uint64_t most = 0;
  for (std::uint64_t b : plan.tile_bytes) most = std::max(most, b);
  const std::string program = shell_quote(program_path), quoted_dir = shell_quote(dir);
  std::cout << "Planned " << plan.tiles.size() << " tiles in " << plan_path(dir) << ", each needing at most "
            << format_memory_size(most) << ". Next, on a cluster or here:\n"
            << "  sbatch --wait " << shell_quote(dir + "/slurm/array.sh") << "\n"
            << "  for k in $(seq 0 " << plan.tiles.size() - 1 << "); do " << program << " run " << quoted_dir
            << " \"$k\"; done\n"
            << "  " << program << " merge " << quoted_dir << "\n";
}

void run_command(const std::vector<std::string>& args) {
  const auto start = std::chrono::steady_clock::now();
  const std::vector<std::string> words = command_words(args);
  const std::string dir = directory_argument(words, "run", 2);
  const PlanFile plan = read_plan(dir);
  const std::size_t k = tile_index(words, plan);
  const std::vector<std::string> view_files = restore_settings(plan, dir);
  const Scaffold scaffold = read_scaffold_file(scaffold_path(dir));
  const Tile& tile = plan.tiles[k];
  std::cout << "Tile " << k << " of " << plan.tiles.size() << ": " << tile.views.size() << " views, about "
            << tile.particles << " particles" << std::endl;
  // A job killed while writing leaves at most a hidden temporary file; its rerun clears it.
  const std::string stale = ".tile_" + std::to_string(k) + ".bin.";
  for (const auto& entry : std::filesystem::directory_iterator(dir + "/tiles"))
    if (const std::string name = entry.path().filename().string(); name.rfind(stale, 0) == 0)
      std::filesystem::remove(entry.path());
  const StageOptions stages = make_stage_options(scaffold.cameras[0]);
  FilterOptions filter = stages.pixel_filter;
  filter.schedule.stride = plan.stride;
  const TileModel model = fuse_tile(tile, scaffold, view_files_source(view_files), filter, stages.pixel_support);
  write_tile_result(result_path(dir, k), model);
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::cout << "Finished tile " << k << " in " << static_cast<long long>(seconds + 0.5) << " s: "
            << model.particles.size() << " points in " << result_path(dir, k) << "\n";
}

void merge_command(const std::vector<std::string>& args) {
  const std::string dir = directory_argument(command_words(args), "merge", 1);
  const PlanFile plan = read_plan(dir);
  if (const std::vector<std::size_t> missing = missing_tiles(dir, plan); !missing.empty()) {
    std::string list;
    for (std::size_t k : missing) list += (list.empty() ? "" : ", ") + std::to_string(k);
    throw std::runtime_error("cannot merge " + in_quotes(dir) + ": " + std::to_string(missing.size()) + " of " +
                             std::to_string(plan.tiles.size()) + " tiles are missing (" + list +
                             "); run them with quillara-tiles run " + shell_quote(dir) + " K");
  }
  restore_settings(plan, dir);
  const Scaffold scaffold = read_scaffold_file(scaffold_path(dir));
  writeParticlesToPLY(scaffold.particles, scaffold.offsets, scaffold.normals, dir + kSuperpixelModelName,
                      model_color_names);
  std::vector<std::string> results;
  std::uint64_t points = 0;
  for (std::size_t k = 0; k < plan.tiles.size(); ++k) {
    results.push_back(result_path(dir, k));
    points += tile_result_points(results.back());
  }
  merge_tile_results(results, dir + kModelName, model_color_names);
  std::cout << "Merged " << plan.tiles.size() << " tiles:\n  superpixel model: " << scaffold.particles.size()
            << " points in " << dir << kSuperpixelModelName << "\n  model:            " << points << " points in "
            << dir << kModelName << "\n";
}

void status_command(const std::vector<std::string>& args) {
  const std::string dir = directory_argument(command_words(args), "status", 1);
  const PlanFile plan = read_plan(dir);
  std::size_t done = 0;
  for (std::size_t k = 0; k < plan.tiles.size(); ++k) {
    std::cout << "tile " << k << ": ";
    try {
      const std::uint64_t points = tile_result_points(result_path(dir, k));
      std::cout << "done, " << points << " points\n";
      ++done;
    } catch (const TileFileError&) {
      std::cout << "missing\n";
    }
  }
  std::cout << done << " of " << plan.tiles.size() << " tiles done"
            << (done == plan.tiles.size() ? "; merge with " : "; run the missing ones, then merge with ")
            << "quillara-tiles merge " << shell_quote(dir) << "\n";
}

}  // namespace tiles
