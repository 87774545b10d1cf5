#pragma once

#include <string>
#include <vector>

// The four commands of quillara-tiles. Each returns the exit status; bad input ends with one
// line on standard error and status 1, leaving no partial file behind.
namespace tiles {

// plan -o DIR (--max-memory SIZE | --tiles N) [quillara options] -- VIEW...
int plan_command(const std::vector<std::string>& args, const std::string& program_path);
// run DIR [K]: tile K, or the tile SLURM_ARRAY_TASK_ID names.
int run_command(const std::vector<std::string>& args);
// merge DIR
int merge_command(const std::vector<std::string>& args);
// status DIR
int status_command(const std::vector<std::string>& args);

// A path in single quotes for a command line a user pastes into a shell.
std::string shell_quoted(const std::string& text);

}  // namespace tiles
