#pragma once

#include <set>
#include <string>

// Takes back what a failed run wrote into its output folder. Made before the folder is created
// (or written to), it notes what is already there; destroyed without keep(), it removes every
// file and folder inside that was not there before, and the folder itself (with the parents made
// with it) when this run created it. Files that were there stay, with whatever content they now
// have: an earlier run's output is not deleted.
class NewFilesGuard {
 public:
  explicit NewFilesGuard(const std::string& folder);
  ~NewFilesGuard();
  NewFilesGuard(const NewFilesGuard&) = delete;
  NewFilesGuard& operator=(const NewFilesGuard&) = delete;

  // The run succeeded: everything stays.
  void keep() { kept_ = true; }

 private:
  std::string folder_;
  std::string created_;  // outermost folder the run creates; empty when the folder exists
  std::set<std::string> before_;
  bool kept_ = false;
};
