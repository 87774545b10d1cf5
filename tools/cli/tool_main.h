#pragma once

#include <functional>
#include <string>
#include <vector>

namespace cli {

// The main of every tool around its work. "--help" or "-h" before any "--" prints usage on
// standard output and "--version" the program's version, both with exit status 0. Otherwise run
// gets the arguments behind the program's name, reads them (throwing UsageError) and does the
// work. Any failure ends the program with one line on standard error, after what it printed so
// far, and exit status 1: "PROGRAM: TEXT", for a UsageError followed by " (see PROGRAM --help)".
int run_tool(const std::string& program, const std::string& usage, int argc, char** argv,
             const std::function<void(const std::vector<std::string>& args)>& run);

}  // namespace cli
