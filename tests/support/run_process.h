#pragma once

// Runs a program in a directory and collects what it writes and how it ends, for the end-to-end
// tests of the binaries.

#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <string>
#include <vector>

namespace e2e {

struct Result {
  std::string out, err;
  int status = -1;         // exit status; -1 when the process did not exit normally
  int signal = 0;          // the signal that ended the process, 0 when it exited
  bool timed_out = false;  // killed because it ran past its time limit
  bool operator==(const Result&) const = default;
};

// How the child runs: a time limit after which it is killed (so a hang fails the test instead of
// stalling the suite), a limit on the size of the files it writes (-1: none; writes beyond it
// fail with EFBIG), and a signal sent to it once its standard output holds a text (none if empty).
struct Limits {
  double seconds = 300.0;
  long long file_size = -1;
  long long address_space = -1;  // bytes of address space the child may map
  std::string stop_at = "";
  int stop_signal = SIGTERM;
};

inline std::ostream& operator<<(std::ostream& os, const Result& r) {
  return os << "{status " << r.status << ", signal " << r.signal << ", stdout \"" << r.out << "\", stderr \"" << r.err
            << "\"}";
}

// Runs `program` in `dir` with `args` behind the program name, collecting both streams. `env` holds
// "NAME=value" entries added to the child's environment.
inline Result run(const std::string& program, const std::string& dir, const std::vector<std::string>& args,
                  const std::vector<std::string>& env = {}, const Limits& limits = {}) {
  int out_pipe[2], err_pipe[2];
  if (pipe(out_pipe) != 0 || pipe(err_pipe) != 0) return {};
  std::vector<std::string> copies = args;
  copies.insert(copies.begin(), program);
  std::vector<char*> argv;
  for (std::string& a : copies) argv.push_back(a.data());
  argv.push_back(nullptr);
  std::vector<std::string> env_copies = env;

  pid_t pid = fork();
  if (pid == 0) {
    dup2(out_pipe[1], STDOUT_FILENO);
    dup2(err_pipe[1], STDERR_FILENO);
    close(out_pipe[0]);
    close(err_pipe[0]);
    close(out_pipe[1]);
    close(err_pipe[1]);
    for (std::string& e : env_copies) putenv(e.data());
    if (limits.file_size >= 0) {
      const rlimit size{static_cast<rlim_t>(limits.file_size), static_cast<rlim_t>(limits.file_size)};
      setrlimit(RLIMIT_FSIZE, &size);
      std::signal(SIGXFSZ, SIG_IGN);
    }
    if (limits.address_space >= 0) {
      const rlimit space{static_cast<rlim_t>(limits.address_space), static_cast<rlim_t>(limits.address_space)};
      setrlimit(RLIMIT_AS, &space);
    }
    if (chdir(dir.c_str()) == 0) execv(argv[0], argv.data());
    _exit(127);
  }
  close(out_pipe[1]);
  close(err_pipe[1]);

  Result r;
  pollfd fds[2] = {{out_pipe[0], POLLIN, 0}, {err_pipe[0], POLLIN, 0}};
  std::string* sinks[2] = {&r.out, &r.err};
  int open_streams = 2;
  bool stopped = false;
  using clock = std::chrono::steady_clock;
  const clock::time_point start = clock::now();
  for (;;) {
    const double elapsed = std::chrono::duration<double>(clock::now() - start).count();
    if (elapsed >= limits.seconds) {
      kill(pid, SIGKILL);
      r.timed_out = true;
      break;
    }
    if (open_streams == 0) break;
    if (poll(fds, 2, 50) < 0) break;
    for (int i = 0; i < 2; ++i) {
      if (fds[i].fd < 0 || fds[i].revents == 0) continue;
      char chunk[4096];
      ssize_t n = read(fds[i].fd, chunk, sizeof chunk);
      if (n > 0) {
        sinks[i]->append(chunk, static_cast<std::size_t>(n));
        if (!stopped && !limits.stop_at.empty() && r.out.find(limits.stop_at) != std::string::npos) {
          kill(pid, limits.stop_signal);
          stopped = true;
        }
      } else {
        close(fds[i].fd);
        fds[i].fd = -1;
        --open_streams;
      }
    }
  }
  for (pollfd& f : fds)
    if (f.fd >= 0) close(f.fd);
  int wait_status = 0;
  waitpid(pid, &wait_status, 0);
  r.status = WIFEXITED(wait_status) ? WEXITSTATUS(wait_status) : -1;
  r.signal = WIFSIGNALED(wait_status) ? WTERMSIG(wait_status) : 0;
  return r;
}

// The average depth that the scene generator wrote into dir, as written.
inline std::string average_depth(const std::string& dir) {
  std::ifstream in(dir + "/average_depth.txt");
  std::string mean;
  in >> mean;
  return mean;
}

// quillara's arguments: `head` (the output directory, say), the average depth, the superpixel
// count, `more` options, then "--" and the view files.
inline std::vector<std::string> fusion_args(std::vector<std::string> head, const std::string& depth_avg,
                                            const std::string& superpixels, const std::vector<std::string>& more,
                                            const std::vector<std::string>& views) {
  head.insert(head.end(), {"--depth-avg", depth_avg, "--superpixels", superpixels});
  head.insert(head.end(), more.begin(), more.end());
  head.push_back("--");
  head.insert(head.end(), views.begin(), views.end());
  return head;
}

// quillara fusing `views` into out_dir, run from its parent, with settings for small generated
// scenes: 300 superpixels and the support of one view, since few views see each surface. One
// thread keeps the order of the superpixel particles, and with it the model, the same each run.
inline Result fuse(const std::string& out_dir, const std::string& depth_avg, const std::vector<std::string>& views) {
  return run(QUILLARA_BIN, std::filesystem::path(out_dir).parent_path().string(),
             fusion_args({"--out-dir", out_dir}, depth_avg, "300", {"--min-support-sp", "1", "--min-support", "1"}, views),
             {"OMP_NUM_THREADS=1"});
}

// How often `part` occurs in `text`.
inline std::size_t occurrences(const std::string& text, const std::string& part) {
  std::size_t n = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
  return n;
}

// The names in directory `dir`, sorted.
inline std::vector<std::string> file_names(const std::string& dir) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(dir)) names.push_back(entry.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

// The closing summary of a run's standard output, from "Finished in " on.
inline std::string closing_summary(const std::string& out) { return out.substr(out.rfind("Finished in ")); }

}  // namespace e2e
