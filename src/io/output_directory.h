#pragma once

#include <string>
#include <vector>

// Creates the output directory with its parents, an existing directory being fine (what
// "mkdir -p" does, without a shell), and checks that the model files can be written there: a file
// can be created in it and none of the model paths (dir + name) is a directory. Returns the
// reason as one line for standard error, or an empty text when the directory is ready.
std::string prepare_output_directory(const std::string& dir, const std::vector<std::string>& model_names);

// The outermost folder on dir's path that does not exist yet: what creating dir with its parents
// makes. Empty when dir exists.
std::string outermost_missing_folder(const std::string& dir);

// Removes dir and then its parents up to and including `top` while they are empty, so that a
// failed run takes back the folders it created and nothing else.
void remove_empty_folders(const std::string& dir, const std::string& top);
