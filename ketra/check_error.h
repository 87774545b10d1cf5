#pragma once

// Turns a pending device error of the calling thread into a std::runtime_error with the text
// "<file>:<line>: cuda error: <error string>\n"; does nothing when there is none. Called after
// every launch, allocation, fill and copy, with the caller's position.
void _CHECK_CUDA_ERROR(char const* file, int line);
