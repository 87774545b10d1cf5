#pragma once

#include <string>
#include <vector>

// The four commands of quillara-tiles, each given the arguments behind its name. A wrong command
// line throws cli::UsageError, anything else the run's own errors or std::runtime_error; the
// tool's main prints either as one line and ends with status 1. No partial file is left behind.
namespace tiles {

// plan -o DIR (--max-memory SIZE | --tiles N) [--halo PIXELS] [quillara options] -- VIEW...
// program_path is the tool itself, for the commands the plan prints and the job script runs.
void plan_command(const std::vector<std::string>& args, const std::string& program_path);
// run DIR [K]: tile K, or the tile SLURM_ARRAY_TASK_ID names.
void run_command(const std::vector<std::string>& args);
// merge DIR
void merge_command(const std::vector<std::string>& args);
// status DIR
void status_command(const std::vector<std::string>& args);

}  // namespace tiles
