#pragma once

// The five entry points of the device BLAS that the pose step opens by name at run time, with
// this layer's handle, status and operation types. Matrices are column-major; scalars (alpha,
// beta, results) are host pointers; vectors and matrices lie in device memory, which on this
// layer is host memory.

struct BlasContext;
typedef BlasContext* blasHandle_t;

enum blasStatus_t : int {
  BLAS_STATUS_SUCCESS = 0,
  BLAS_STATUS_NOT_INITIALIZED = 1,
  BLAS_STATUS_ALLOC_FAILED = 3,
  BLAS_STATUS_INVALID_VALUE = 7,
};

// op(A) = A, A^T, or the conjugate transpose (A^T for real matrices).
enum blasOperation_t : int {
  BLAS_OP_N = 0,
  BLAS_OP_T = 1,
  BLAS_OP_C = 2,
};

extern "C" {

blasStatus_t cublasCreate_v2(blasHandle_t* handle);
blasStatus_t cublasDestroy_v2(blasHandle_t handle);
// C = alpha op(A) op(B) + beta C, with op(A) m x k, op(B) k x n, C m x n.
blasStatus_t cublasSgemm_v2(blasHandle_t handle, blasOperation_t transa, blasOperation_t transb, int m, int n, int k,
                            const float* alpha, const float* A, int lda, const float* B, int ldb, const float* beta,
                            float* C, int ldc);
// y = alpha op(A) x + beta y, with A m x n.
blasStatus_t cublasSgemv_v2(blasHandle_t handle, blasOperation_t trans, int m, int n, const float* alpha,
                            const float* A, int lda, const float* x, int incx, const float* beta, float* y, int incy);
// *result = Euclidean norm of the n elements of x, taken every incx; 0 when n <= 0 or incx <= 0.
blasStatus_t cublasSnrm2_v2(blasHandle_t handle, int n, const float* x, int incx, float* result);

}
