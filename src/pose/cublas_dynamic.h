#pragma once

#include "device/blas/blas_v2.h"

// The device BLAS, opened at run time instead of linked, so that the program starts without it
// and only pose estimation needs it. One global instance serves the program.
struct CublasDynamic {
  void* handle = nullptr;  // of the opened library
  decltype(&::cublasCreate_v2) cublasCreate_v2 = nullptr;
  decltype(&::cublasDestroy_v2) cublasDestroy_v2 = nullptr;
  decltype(&::cublasSgemm_v2) cublasSgemm_v2 = nullptr;
  decltype(&::cublasSgemv_v2) cublasSgemv_v2 = nullptr;
  decltype(&::cublasSnrm2_v2) cublasSnrm2_v2 = nullptr;

  // Opens "libcublas.so" and resolves the five entry points; call once before the first use.
  // Throws std::runtime_error "Cannot open cublas lib" when the library cannot be opened, and
  // with the loader's text when an entry point is missing. A failure leaves the library open
  // and the entry points resolved so far set.
  void load();
};

extern CublasDynamic cublas;

// What load() does, for a library of any file name.
void load_cublas_library(CublasDynamic& blas, const char* file_name);
