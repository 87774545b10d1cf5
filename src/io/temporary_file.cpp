#include "src/io/temporary_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace {

std::string hidden_name(const std::string& final_path, int attempt) {
  const std::string::size_type slash = final_path.rfind('/');
  const std::string dir = slash == std::string::npos ? "" : final_path.substr(0, slash + 1);
  const std::string name = slash == std::string::npos ? final_path : final_path.substr(slash + 1);
  std::string hidden = dir;
  hidden += '.';
  hidden += name;
  hidden += '.';
  hidden += std::to_string(getpid());
  if (attempt > 0) hidden += '-' + std::to_string(attempt);
  hidden += ".part";
  return hidden;
}

}  // namespace

TemporaryFile::TemporaryFile(const std::string& final_path) {
  // Exclusive creation, so a leftover of an earlier process with the same id is never reused;
  // mode 0666 lets the umask decide, as for any other new file.
  for (int attempt = 0; attempt < 100; ++attempt) {
    const std::string candidate = hidden_name(final_path, attempt);
    const int fd = open(candidate.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd >= 0) {
      close(fd);
      path = candidate;
      on_signal.emplace(path, RemoveOnSignal::Kind::file);
      return;
    }
    if (errno != EEXIST) throw std::runtime_error(std::strerror(errno));
  }
  throw std::runtime_error(std::strerror(EEXIST));
}

TemporaryFile::~TemporaryFile() {
  if (path.empty()) return;
  on_signal.reset();
  std::remove(path.c_str());
}

void TemporaryFile::commit(const std::string& final_path) {
  if (std::rename(path.c_str(), final_path.c_str()) != 0) throw std::runtime_error(std::strerror(errno));
  on_signal.reset();
  path.clear();
}
