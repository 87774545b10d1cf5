// quillara-tiles: a run cut into tiles of space for a cluster (plan, run each tile, merge).
#include <filesystem>
#include <string>
#include <vector>

#include "tools/cli/arguments.h"
#include "tools/cli/tool_main.h"
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
    "          pixel footprints at the average depth (default 20). The quillara options are\n"
    "          those with a value, but --visible-support and --visible-floor\n"
    "  run     fuses tile K (from 0; without K the one SLURM_ARRAY_TASK_ID names) into\n"
    "          DIR/tiles/tile_K.bin; a rerun replaces it\n"
    "  merge   writes DIR/model.ply and DIR/model_superpixel.ply once every tile is done\n"
    "  status  lists the done and missing tiles\n"
    "  --help  prints this text; --version prints the version\n"
    "The model is the one 'quillara --max-memory' makes with the same tiles.\n";

void run(const std::vector<std::string>& args) {
  if (args.empty()) throw cli::UsageError("a command is needed: plan, run, merge or status");
  const std::vector<std::string> rest(args.begin() + 1, args.end());
  if (args[0] == "plan") tiles::plan_command(rest, std::filesystem::canonical("/proc/self/exe").string());
  else if (args[0] == "run") tiles::run_command(rest);
  else if (args[0] == "merge") tiles::merge_command(rest);
  else if (args[0] == "status") tiles::status_command(rest);
  else throw cli::UsageError("unknown command '" + args[0] + "'");
}

}  // namespace

int main(int argc, char** argv) { return cli::run_tool("quillara-tiles", kUsage, argc, argv, run); }
