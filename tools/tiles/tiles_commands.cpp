#include "tools/tiles/tiles_commands.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>
#include <sstream>

#include "src/app/command_line.h"
#include "src/app/input_checks.h"
#include "src/app/model_files.h"
#include "src/app/scene_input.h"
#include "src/core/settings.h"
#include "src/io/temporary_file.h"
#include "src/tiles/fuse_tile.h"
#include "src/tiles/memory_size.h"
#include "src/tiles/run_plan.h"
#include "src/tiles/tile_files.h"
#include "tools/tiles/plan_file.h"

namespace tiles {
namespace {

// A failure of a command: its text is the one line printed after the program's name.
struct CommandError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

std::string in_quotes(const std::string& path) { return "\"" + path + "\""; }
std::string plan_path(const std::string& dir) { return dir + "/plan.json"; }
std::string scaffold_path(const std::string& dir) { return dir + "/scaffold.bin"; }
std::string result_path(const std::string& dir, std::size_t k) { return dir + "/tiles/tile_" + std::to_string(k) + ".bin"; }

void write_text_atomically(const std::string& path, const std::string& text) {
  TemporaryFile file(path);
  std::ofstream out(file.path, std::ios::binary | std::ios::trunc);
  out << text;
  out.close();
  if (!out) throw CommandError("cannot write " + in_quotes(path));
  file.commit(path);
}

PlanFile read_plan(const std::string& dir) {
  std::ifstream in(plan_path(dir), std::ios::binary);
  if (!in) throw CommandError(in_quotes(plan_path(dir)) + " is missing: plan the run first");
  std::stringstream text;
  text << in.rdbuf();
  try {
    return parse_plan(text.str());
  } catch (const std::runtime_error& e) {
    throw CommandError(in_quotes(plan_path(dir)) + ": " + e.what());
  }
}

// Sets the run-level settings from the options kept in the plan, through quillara's own parser.
void restore_settings(const PlanFile& plan, const std::string& dir) {
  std::error_code ec;
  std::filesystem::current_path(plan.working_directory, ec);
  if (ec) throw CommandError("cannot enter the plan's working directory " + in_quotes(plan.working_directory) + ": " + ec.message());
  for (const PlannedView& v : plan.views)
    if (const std::string change = view_change(v); !change.empty())
      throw CommandError("view file " + in_quotes(v.file) + ": " + change + " since " + in_quotes(plan_path(dir)) +
                         " was made; plan again");
  std::vector<std::string> args = {"quillara-tiles", "--out-dir", dir};
  args.insert(args.end(), plan.arguments.begin(), plan.arguments.end());
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(a.data());
  std::vector<std::string> views;
  if (std::optional<int> status = set_up_run(static_cast<int>(argv.size()), argv.data(), views))
    throw CommandError("the options in " + in_quotes(plan_path(dir)) + " are not a run's");
  depth_range_max = plan.depth_range_max;
}

ViewSource view_source(const std::vector<PlannedView>& views) {
  return [&views](int i, Camera& camera, CMatrix<float>& depth) {
    std::cout << "Reading file " << views[i].file << std::endl;
    read_view(views[i].file, i, camera, depth);
  };
}

std::size_t tile_index(const std::vector<std::string>& args, const PlanFile& plan) {
  std::string text;
  if (args.size() > 1) text = args[1];
  else if (const char* id = std::getenv("SLURM_ARRAY_TASK_ID")) text = id;
  else throw CommandError("run needs a tile number, or SLURM_ARRAY_TASK_ID");
  char* end = nullptr;
  const long k = std::strtol(text.c_str(), &end, 10);
  if (text.empty() || *end != '\0' || k < 0 || k >= static_cast<long>(plan.tiles.size()))
    throw CommandError("tile " + in_quotes(text) + " is not one of the plan's " + std::to_string(plan.tiles.size()) +
                       " (0 to " + std::to_string(plan.tiles.size() - 1) + ")");
  return static_cast<std::size_t>(k);
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
  s << "\nexec " << shell_quoted(program) << " run " << shell_quoted(dir) << "\n";
  return s.str();
}

// True when args[i] is `name VALUE` or `name=VALUE`; moves i past the value and fills it.
bool option_value(const std::vector<std::string>& args, std::size_t& i, const std::string& name, std::string& value) {
  if (args[i] == name) {
    value = i + 1 < args.size() ? args[++i] : "";
    return true;
  }
  if (args[i].rfind(name + "=", 0) != 0) return false;
  value = args[i].substr(name.size() + 1);
  return true;
}

// The options without -o / --out-dir: tile jobs take the plan's directory, wherever it is mounted.
std::vector<std::string> without_output_directory(const std::vector<std::string>& args) {
  std::vector<std::string> kept;
  for (std::size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--") {
      kept.insert(kept.end(), args.begin() + i, args.end());
      break;
    }
    if (args[i] == "-o" || args[i] == "--out-dir") ++i;
    else if (args[i].rfind("--out-dir=", 0) != 0 && !(args[i].rfind("-o", 0) == 0 && args[i].size() > 2)) kept.push_back(args[i]);
  }
  return kept;
}

int fail(const std::string& line) {
  std::cout.flush();
  std::cerr << "quillara-tiles: " << line << "\n";
  return 1;
}

// Runs a command body, turning its failures into one line and status 1.
template <typename Body>
int guarded(Body body) {
  try {
    return body();
  } catch (const CommandError& e) {
    return fail(e.what());
  } catch (const ViewFileError& e) {
    return fail(e.what());
  } catch (const TileBudgetError& e) {
    return fail(e.what());
  } catch (const TileFileError& e) {
    return fail(e.what());
  } catch (const ModelWriteError& e) {
    return fail(e.what());
  } catch (const std::runtime_error& e) {
    return fail(e.what());
  }
}

std::string directory_argument(const std::vector<std::string>& args, const char* command, std::size_t most) {
  if (args.empty() || args.size() > most)
    throw CommandError(std::string(command) + " takes the plan's directory" + (most > 1 ? " and a tile number" : ""));
  return std::filesystem::absolute(args[0]).lexically_normal().string();
}

}  // namespace

std::string shell_quoted(const std::string& text) {
  std::string out = "'";
  for (char c : text) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}

int plan_command(const std::vector<std::string>& args, const std::string& program_path) {
  return guarded([&] {
    // --tiles is ours; everything else, --max-memory included, is a quillara option.
    std::vector<std::string> quillara_args;
    float tiles_asked = 0.0f, halo_pixels = kHaloPixels;
    std::string value;
    bool budget = false, options = true;
    for (std::size_t i = 0; i < args.size(); ++i) {
      if (options && args[i] == "--") options = false;
      const bool whole = options && option_value(args, i, "--tiles", value);
      if (whole || (options && option_value(args, i, "--halo", value))) {
        char* end = nullptr;
        const double n = std::strtod(value.c_str(), &end);
        if (value.empty() || *end != '\0' || !(n >= 1 && n <= 100000) || (whole && n != static_cast<int>(n)))
          throw CommandError(std::string(whole ? "--tiles needs a whole number" : "--halo needs a number of pixels") +
                             " from 1 to 100000, got " + in_quotes(value));
        (whole ? tiles_asked : halo_pixels) = static_cast<float>(n);
        continue;
      }
      if (options && (args[i] == "--max-memory" || args[i].rfind("--max-memory=", 0) == 0)) budget = true;
      quillara_args.push_back(args[i]);
    }
    const int tiles = static_cast<int>(tiles_asked);
    if (budget == (tiles > 0)) throw CommandError("plan needs either --max-memory SIZE or --tiles N");
    std::vector<std::string> argv_text = {"quillara-tiles plan"};
    argv_text.insert(argv_text.end(), quillara_args.begin(), quillara_args.end());
    std::vector<char*> argv;
    for (std::string& a : argv_text) argv.push_back(a.data());
    std::vector<std::string> view_files;
    if (std::optional<int> status = set_up_run(static_cast<int>(argv.size()), argv.data(), view_files))
      return *status == 0 ? 1 : *status;
    const std::string dir = std::filesystem::absolute(output_directory).lexically_normal().string();

    PlanFile plan;
    plan.arguments = without_output_directory(quillara_args);
    plan.working_directory = std::filesystem::current_path().string();
    for (const std::string& v : view_files) plan.views.push_back(stamp_view(v));
    Scaffold scaffold = read_scaffold(static_cast<int>(view_files.size()), view_source(plan.views));
    const Camera& first = scaffold.cameras[0];
    if (const std::string problem =
            radius_problem(average_depth, first.K[0], superpixel_radius(first.width, first.height, superpixel_count));
        !problem.empty())
      throw CommandError(problem);
    check_scaffold_budget(max_memory, scaffold.particles.size());
    filter_scaffold(scaffold);
    const RunPlan run = plan_run(scaffold, max_memory, tiles, halo_pixels);
    plan.budget = max_memory;
    plan.min_tiles = tiles;
    plan.depth_range_max = depth_range_max;
    plan.halo = run.halo;
    plan.stride = run.tiles.size() > 1 ? run.stride : 0;
    plan.tiles = run.tiles;
    for (const Tile& t : run.tiles) plan.tile_bytes.push_back(tile_bytes(scaffold, t));

    // A new plan makes the results of an old one meaningless.
    std::filesystem::remove_all(dir + "/tiles");
    std::filesystem::create_directories(dir + "/tiles");
    std::filesystem::create_directories(dir + "/slurm");
    write_scaffold(scaffold_path(dir), scaffold);
    write_text_atomically(dir + "/slurm/array.sh", slurm_script(dir, program_path, plan));
    write_text_atomically(plan_path(dir), format_plan(plan));

    std::uint64_t most = 0;
    for (std::uint64_t b : plan.tile_bytes) most = std::max(most, b);
    std::cout << "Planned " << plan.tiles.size() << " tiles in " << plan_path(dir) << ", each needing at most "
              << format_memory_size(most) << ". Next, on a cluster or here:\n"
              << "  sbatch --wait " << shell_quoted(dir + "/slurm/array.sh") << "\n"
              << "  for k in $(seq 0 " << plan.tiles.size() - 1 << "); do " << shell_quoted(program_path) << " run "
              << shell_quoted(dir) << " \"$k\"; done\n"
              << "  " << shell_quoted(program_path) << " merge " << shell_quoted(dir) << "\n";
    return 0;
  });
}

int run_command(const std::vector<std::string>& args) {
  return guarded([&] {
    const auto start = std::chrono::steady_clock::now();
    const std::string dir = directory_argument(args, "run", 2);
    const PlanFile plan = read_plan(dir);
    const std::size_t k = tile_index(args, plan);
    restore_settings(plan, dir);
    const Scaffold scaffold = read_scaffold_file(scaffold_path(dir));
    const Tile& tile = plan.tiles[k];
    std::cout << "Tile " << k << " of " << plan.tiles.size() << ": " << tile.views.size() << " views, about "
              << tile.particles << " particles" << std::endl;
    // A job killed while writing leaves at most a hidden temporary file; its rerun clears it.
    const std::string stale = ".tile_" + std::to_string(k) + ".bin.";
    for (const auto& entry : std::filesystem::directory_iterator(dir + "/tiles"))
      if (const std::string name = entry.path().filename().string(); name.rfind(stale, 0) == 0) std::filesystem::remove(entry.path());
    const TileModel model = fuse_tile(tile, scaffold, view_source(plan.views), plan.stride);
    write_tile_result(result_path(dir, k), model);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::cout << "Finished tile " << k << " in " << static_cast<long long>(seconds + 0.5) << " s: "
              << model.particles.size() << " points in " << result_path(dir, k) << "\n";
    return 0;
  });
}

int merge_command(const std::vector<std::string>& args) {
  return guarded([&] {
    const std::string dir = directory_argument(args, "merge", 1);
    const PlanFile plan = read_plan(dir);
    if (const std::vector<std::size_t> missing = missing_tiles(dir, plan); !missing.empty()) {
      std::string list;
      for (std::size_t k : missing) list += (list.empty() ? "" : ", ") + std::to_string(k);
      throw CommandError("cannot merge " + in_quotes(dir) + ": " + std::to_string(missing.size()) + " of " +
                         std::to_string(plan.tiles.size()) + " tiles are missing (" + list + "); run them with " +
                         shell_quoted("quillara-tiles") + " run " + shell_quoted(dir) + " K");
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
    return 0;
  });
}

int status_command(const std::vector<std::string>& args) {
  return guarded([&] {
    const std::string dir = directory_argument(args, "status", 1);
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
              << shell_quoted("quillara-tiles") << " merge " << shell_quoted(dir) << "\n";
    return 0;
  });
}

}  // namespace tiles
