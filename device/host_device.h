#pragma once

// Marks code that runs per element on the device as well as on the host. The executor of this
// layer runs such functions on OpenMP threads; a GPU backend would compile the same bodies.
#define HOST_DEVICE
