#pragma once

#include <string>

// Start-up of the pose alignment: reports the device's free and total memory and opens the device
// BLAS. Returns the reason as one line when the BLAS cannot be opened, else empty.
std::string start_pose_device();
