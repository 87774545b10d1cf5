#pragma once

#include <cstddef>

#include "device/error.h"

namespace device {

// Free and total memory in bytes. The device shares the machine's memory, so these are the
// machine's figures.
Error memGetInfo(std::size_t* free_bytes, std::size_t* total_bytes);

}  // namespace device
