#include <dlfcn.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "src/pose/cublas_dynamic.h"
#include "tests/support/ketra_test_support.h"

namespace {

std::vector<float> random_values(std::size_t n, unsigned seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> u(-1.0f, 1.0f);
  std::vector<float> v(n);
  for (float& x : v) x = u(rng);
  return v;
}

class DeviceBlas : public ::testing::Test {
 protected:
  void SetUp() override {
    cublas.load();
    ASSERT_EQ(cublas.cublasCreate_v2(&handle), BLAS_STATUS_SUCCESS);
  }
  void TearDown() override { EXPECT_EQ(cublas.cublasDestroy_v2(handle), BLAS_STATUS_SUCCESS); }
  blasHandle_t handle = nullptr;
};

}  // namespace

// The test programs find the library of the build through their own run path; the program's
// own run path is proven by the --improve-cameras end-to-end runs, which load it.
TEST(CublasDynamic, LoadsTheLibraryOfTheBuildAndResolvesAllEntryPoints) {
  CublasDynamic blas;
  blas.load();
  EXPECT_NE(blas.handle, nullptr);  // a missing entry point throws, as the next test shows
  Dl_info info{};
  ASSERT_NE(dladdr(reinterpret_cast<void*>(blas.cublasSgemm_v2), &info), 0);
  EXPECT_EQ(std::filesystem::path(info.dli_fname).filename(), "libcublas.so");
}

TEST(CublasDynamic, AMissingLibraryOrEntryPointIsAnError) {
  CublasDynamic blas;
  EXPECT_EQ(message_of([&] { load_cublas_library(blas, "libquillara-no-such-blas.so"); }), "Cannot open cublas lib");
  EXPECT_EQ(blas.handle, nullptr);

  // A library without the entry points: the loader's own text, the library stays open.
  void* libm = dlopen("libm.so.6", RTLD_NOW);
  ASSERT_NE(libm, nullptr);
  dlerror();
  dlsym(libm, "cublasCreate_v2");
  const std::string expected = dlerror();
  EXPECT_EQ(message_of([&] { load_cublas_library(blas, "libm.so.6"); }), expected);
  EXPECT_EQ(blas.handle, libm);
  EXPECT_EQ(blas.cublasCreate_v2, nullptr);
}

// The two products of the pose step: H = J^T J (6 x 6) and g = -J^T r, with J a K x 6
// column-major matrix, against plain loops in double.
TEST_F(DeviceBlas, ProductsOfThePoseStepAgreeWithPlainLoops) {
  const int K = 3 * 37 * 23;
  const std::vector<float> J = random_values(6 * K, 1), r = random_values(K, 2);
  std::vector<float> H(36, -7.0f), g(6, -7.0f);
  const float one = 1.0f, minus_one = -1.0f, zero = 0.0f;
  ASSERT_EQ(cublas.cublasSgemm_v2(handle, BLAS_OP_T, BLAS_OP_N, 6, 6, K, &one, J.data(), K, J.data(), K, &zero,
                                  H.data(), 6),
            BLAS_STATUS_SUCCESS);
  ASSERT_EQ(cublas.cublasSgemv_v2(handle, BLAS_OP_T, K, 6, &minus_one, J.data(), K, r.data(), 1, &zero, g.data(), 1),
            BLAS_STATUS_SUCCESS);
  for (int i = 0; i < 6; ++i) {
    double gi = 0;
    for (int k = 0; k < K; ++k) gi -= static_cast<double>(J[i * K + k]) * r[k];
    EXPECT_NEAR(g[i], gi, 1e-5 * K) << i;
    for (int j = 0; j < 6; ++j) {
      double hij = 0;
      for (int k = 0; k < K; ++k) hij += static_cast<double>(J[i * K + k]) * J[j * K + k];
      EXPECT_NEAR(H[j * 6 + i], hij, 1e-5 * K) << i << ", " << j;  // column-major
    }
  }
}

// Bad arguments come back as a status instead of ending the process in the CPU BLAS.
TEST_F(DeviceBlas, BadArgumentsAreAnsweredWithAStatus) {
  std::vector<float> a(16, 1.0f), c(16, 0.0f);
  const float one = 1.0f;
  EXPECT_EQ(cublas.cublasSgemm_v2(handle, BLAS_OP_N, BLAS_OP_N, 4, 2, 2, &one, a.data(), 3, a.data(), 2, &one,
                                  c.data(), 4),
            BLAS_STATUS_INVALID_VALUE);  // lda below m
  EXPECT_EQ(cublas.cublasSgemm_v2(handle, static_cast<blasOperation_t>(9), BLAS_OP_N, 2, 2, 2, &one, a.data(), 2,
                                  a.data(), 2, &one, c.data(), 2),
            BLAS_STATUS_INVALID_VALUE);
  EXPECT_EQ(cublas.cublasSgemv_v2(handle, BLAS_OP_T, 4, 2, &one, a.data(), 4, a.data(), 0, &one, c.data(), 1),
            BLAS_STATUS_INVALID_VALUE);  // zero stride
  EXPECT_EQ(cublas.cublasSgemv_v2(nullptr, BLAS_OP_T, 4, 2, &one, a.data(), 4, a.data(), 1, &one, c.data(), 1),
            BLAS_STATUS_NOT_INITIALIZED);
  EXPECT_EQ(c, std::vector<float>(16, 0.0f));
}
