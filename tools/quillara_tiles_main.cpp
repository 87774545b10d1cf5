// quillara-tiles: a run cut into tiles of space for a cluster (plan, run each tile, merge).
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "tools/tiles/tiles_commands.h"

namespace {

const char* const kUsage =
    "Usage: quillara-tiles plan -o DIR (--max-memory SIZE | --tiles N) [--halo PIXELS] [quillara options]\n"
    "                           -- VIEW...\n"
    "       quillara-tiles run DIR [K]\n"
    "       quillara-tiles merge DIR\n"
    "       quillara-tiles status DIR\n"
    "\n"
    "A quillara run cut into tiles of space, as independent jobs over shared files.\n"
    "  plan    makes the superpixel-level model, plans tiles whose particles fit SIZE (or N\n"
    "          tiles) and writes DIR/plan.json and DIR/slurm/array.sh, a Slurm job array with\n"
    "          one task per tile; --halo sets the margin each tile fuses beyond its core, in\n"
    "          pixel footprints at the average depth (default 20)\n"
    "  run     fuses tile K (from 0; without K the one SLURM_ARRAY_TASK_ID names) into\n"
    "          DIR/tiles/tile_K.bin; a rerun replaces it\n"
    "  merge   writes DIR/model.ply and DIR/model_superpixel.ply once every tile is done\n"
    "  status  lists the done and missing tiles\n"
    "The model is the one 'quillara --max-memory' makes with the same tiles.\n";

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> args(argv + 1, argv + argc);
  if (args.empty() || args[0] == "--help" || args[0] == "-h") {
    std::cout << kUsage;
    return args.empty() ? 1 : 0;
  }
  if (args[0] == "--version") {
    std::cout << "quillara-tiles 1.0.0\n";
    return 0;
  }
  const std::vector<std::string> rest(args.begin() + 1, args.end());
  if (args[0] == "plan") return tiles::plan_command(rest, std::filesystem::canonical("/proc/self/exe").string());
  if (args[0] == "run") return tiles::run_command(rest);
  if (args[0] == "merge") return tiles::merge_command(rest);
  if (args[0] == "status") return tiles::status_command(rest);
  std::cerr << "quillara-tiles: unknown command \"" << args[0] << "\"; run 'quillara-tiles --help' for usage\n";
  return 1;
}
