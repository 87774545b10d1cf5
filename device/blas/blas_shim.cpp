// The device BLAS of this layer: the five entry points the pose step resolves by name, computed
// by the system's CPU BLAS on the layer's memory (plain host memory). Arguments are checked here
// and answered with a status, as a device BLAS does, because the CPU BLAS would print and end
// the process on a bad argument.
#include <cblas.h>

#include <algorithm>
#include <new>

#include "device/blas/blas_v2.h"

#define BLAS_EXPORT __attribute__((visibility("default")))

// The computation needs no state; the handle only has to be a live object.
struct BlasContext {
  int unused = 0;
};

namespace {

bool valid(blasHandle_t handle) { return handle != nullptr; }

bool valid_operation(blasOperation_t op) { return op == BLAS_OP_N || op == BLAS_OP_T || op == BLAS_OP_C; }

CBLAS_TRANSPOSE to_cblas(blasOperation_t op) { return op == BLAS_OP_N ? CblasNoTrans : CblasTrans; }

}  // namespace

extern "C" {

BLAS_EXPORT blasStatus_t cublasCreate_v2(blasHandle_t* handle) {
  if (handle == nullptr) return BLAS_STATUS_INVALID_VALUE;
  *handle = new (std::nothrow) BlasContext;
  return *handle ? BLAS_STATUS_SUCCESS : BLAS_STATUS_ALLOC_FAILED;
}

BLAS_EXPORT blasStatus_t cublasDestroy_v2(blasHandle_t handle) {
  if (!valid(handle)) return BLAS_STATUS_NOT_INITIALIZED;
  delete handle;
  return BLAS_STATUS_SUCCESS;
}

BLAS_EXPORT blasStatus_t cublasSgemm_v2(blasHandle_t handle, blasOperation_t transa, blasOperation_t transb, int m,
                                        int n, int k, const float* alpha, const float* A, int lda, const float* B,
                                        int ldb, const float* beta, float* C, int ldc) {
  if (!valid(handle)) return BLAS_STATUS_NOT_INITIALIZED;
  if (!valid_operation(transa) || !valid_operation(transb) || m < 0 || n < 0 || k < 0 || alpha == nullptr ||
      beta == nullptr)
    return BLAS_STATUS_INVALID_VALUE;
  // Leading dimensions: at least the rows of the matrix as stored.
  if (lda < std::max(1, transa == BLAS_OP_N ? m : k) || ldb < std::max(1, transb == BLAS_OP_N ? k : n) ||
      ldc < std::max(1, m))
    return BLAS_STATUS_INVALID_VALUE;
  if (m == 0 || n == 0) return BLAS_STATUS_SUCCESS;
  cblas_sgemm(CblasColMajor, to_cblas(transa), to_cblas(transb), m, n, k, *alpha, A, lda, B, ldb, *beta, C, ldc);
  return BLAS_STATUS_SUCCESS;
}

BLAS_EXPORT blasStatus_t cublasSgemv_v2(blasHandle_t handle, blasOperation_t trans, int m, int n, const float* alpha,
                                        const float* A, int lda, const float* x, int incx, const float* beta, float* y,
                                        int incy) {
  if (!valid(handle)) return BLAS_STATUS_NOT_INITIALIZED;
  if (!valid_operation(trans) || m < 0 || n < 0 || lda < std::max(1, m) || incx == 0 || incy == 0 ||
      alpha == nullptr || beta == nullptr)
    return BLAS_STATUS_INVALID_VALUE;
  if (m == 0 || n == 0) return BLAS_STATUS_SUCCESS;
  cblas_sgemv(CblasColMajor, to_cblas(trans), m, n, *alpha, A, lda, x, incx, *beta, y, incy);
  return BLAS_STATUS_SUCCESS;
}

BLAS_EXPORT blasStatus_t cublasSnrm2_v2(blasHandle_t handle, int n, const float* x, int incx, float* result) {
  if (!valid(handle)) return BLAS_STATUS_NOT_INITIALIZED;
  if (result == nullptr) return BLAS_STATUS_INVALID_VALUE;
  *result = n <= 0 || incx <= 0 ? 0.0f : cblas_snrm2(n, x, incx);
  return BLAS_STATUS_SUCCESS;
}

}  // extern "C"
