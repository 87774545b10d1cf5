#include "src/pose/pose_device.h"

#include <iostream>
#include <stdexcept>

#include "device/memory_info.h"
#include "src/pose/cublas_dynamic.h"

std::string start_pose_device() {
  std::size_t free_bytes = 0, total_bytes = 0;
  device::memGetInfo(&free_bytes, &total_bytes);
  std::cout << " cuda meminfo: free " << (free_bytes >> 20) << " MB   total " << (total_bytes >> 20) << " MB"
            << std::endl;
  try {
    cublas.load();
  } catch (const std::runtime_error& e) {
    return std::string("--improve-cameras needs the device BLAS: ") + e.what();
  }
  return {};
}
