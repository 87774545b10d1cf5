#include "device/memory_info.h"

#include <unistd.h>

namespace device {

Error memGetInfo(std::size_t* free_bytes, std::size_t* total_bytes) {
  if (free_bytes == nullptr || total_bytes == nullptr) return fail(ErrorInvalidValue);
  long page = sysconf(_SC_PAGESIZE);
  long total_pages = sysconf(_SC_PHYS_PAGES);
  long free_pages = sysconf(_SC_AVPHYS_PAGES);
  if (page <= 0 || total_pages <= 0 || free_pages < 0) return fail(ErrorInvalidValue);
  *total_bytes = static_cast<std::size_t>(total_pages) * static_cast<std::size_t>(page);
  *free_bytes = static_cast<std::size_t>(free_pages) * static_cast<std::size_t>(page);
  return Success;
}

}  // namespace device
