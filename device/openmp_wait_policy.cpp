// The OpenMP threads' wait policy: passive, unless the caller has chosen one.
//
// Threads that finish a parallel region early, and the pool's threads between regions, wait for
// work; by default the runtime lets them spin for a few milliseconds first. On a machine whose
// cores are shared, the spinning takes the cores from the threads that still work: at a load of 9
// on two cores a standard run took 35 to 45 s instead of 20 to 25 s, and 17.6 s of processor time
// instead of 10.3 s; a small scene 4.4 s instead of 0.8 s. Sleeping at once costs a wake-up of some
// microseconds per region, which the regions here don't notice.
//
// The runtime reads its settings from the environment while it is loaded, before any code of the
// program runs except the executable's pre-initialisation functions, and the C library hasn't set
// up the environment when those run, so setting a variable there is lost. Such a function instead
// starts the program once more, with OMP_WAIT_POLICY=passive added, if the variable is not set;
// the second start finds it and goes on. If the program can't be started again, it runs with the
// runtime's default. Tools that follow a program only until it starts another (valgrind without
// --trace-children=yes) should run it with OMP_WAIT_POLICY set.

#include <unistd.h>

#include <alloca.h>
#include <cstring>

// Referenced by the link of every program that uses the device layer (see CMakeLists.txt), so that
// the entry below is part of each.
extern "C" {
int quillara_openmp_wait_policy = 0;
}

namespace {

char passive[] = "OMP_WAIT_POLICY=passive";

void start_with_passive_wait(int, char** argv, char** envp) {
  int count = 0;
  for (; envp && envp[count]; ++count)
    if (std::strncmp(envp[count], "OMP_WAIT_POLICY=", 16) == 0) return;
  char** env = static_cast<char**>(alloca((count + 2) * sizeof(char*)));
  for (int k = 0; k < count; ++k) env[k] = envp[k];
  env[count] = passive;
  env[count + 1] = nullptr;
  execve("/proc/self/exe", argv, env);
}

__attribute__((section(".preinit_array"), used)) void (*const wait_policy_entry)(int, char**, char**) =
    start_with_passive_wait;

}  // namespace
