#include "src/pose/cublas_dynamic.h"

#include <dlfcn.h>

#include <stdexcept>

CublasDynamic cublas;

namespace {

// Resolves one entry point; the loader's error text becomes the exception.
template <class F>
void resolve(void* library, const char* name, F& function) {
  dlerror();
  void* symbol = dlsym(library, name);
  if (const char* error = dlerror()) throw std::runtime_error(error);
  function = reinterpret_cast<F>(symbol);
}

}  // namespace

void load_cublas_library(CublasDynamic& blas, const char* file_name) {
  blas.handle = dlopen(file_name, RTLD_NOW);
  if (blas.handle == nullptr) throw std::runtime_error("Cannot open cublas lib");
  resolve(blas.handle, "cublasCreate_v2", blas.cublasCreate_v2);
  resolve(blas.handle, "cublasDestroy_v2", blas.cublasDestroy_v2);
  resolve(blas.handle, "cublasSgemm_v2", blas.cublasSgemm_v2);
  resolve(blas.handle, "cublasSgemv_v2", blas.cublasSgemv_v2);
  resolve(blas.handle, "cublasSnrm2_v2", blas.cublasSnrm2_v2);
}

void CublasDynamic::load() { load_cublas_library(*this, "libcublas.so"); }
