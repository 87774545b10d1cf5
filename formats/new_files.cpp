#include "formats/new_files.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <vector>

namespace fs = std::filesystem;

namespace {

fs::path normal_absolute(const std::string& path) {
  std::error_code ec;
  fs::path p = fs::absolute(path, ec).lexically_normal();
  if (!p.has_filename()) p = p.parent_path();  // a trailing slash
  return p;
}

std::vector<std::string> entries_below(const fs::path& folder) {
  std::vector<std::string> entries;
  std::error_code ec;
  for (fs::recursive_directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec))
    entries.push_back(it->path().string());
  return entries;
}

}  // namespace

NewFilesGuard::NewFilesGuard(const std::string& folder) {
  const fs::path path = normal_absolute(folder);
  folder_ = path.string();
  std::error_code ec;
  if (fs::exists(path, ec)) {
    for (std::string& e : entries_below(path)) before_.insert(std::move(e));
    return;
  }
  fs::path top = path;
  while (top.has_parent_path() && top.parent_path() != top && !fs::exists(top.parent_path(), ec))
    top = top.parent_path();
  created_ = top.string();
}

NewFilesGuard::~NewFilesGuard() {
  if (kept_) return;
  std::error_code ec;
  if (!created_.empty()) {
    fs::remove_all(created_, ec);  // all of it is this run's
    return;
  }
  std::vector<std::string> added;
  for (std::string& e : entries_below(folder_))
    if (!before_.count(e)) added.push_back(std::move(e));
  // Deepest first, so that a new folder is empty when its turn comes.
  std::sort(added.begin(), added.end(), [](const std::string& a, const std::string& b) { return a > b; });
  for (const std::string& e : added) fs::remove_all(e, ec);
}
