#pragma once

// Shared helpers of the image, scene-input and model-output tests: scratch files, raw PNG files
// of any colour type made directly with libpng, and exact-message checks.

#include <gtest/gtest.h>
#include <png.h>
#include <unistd.h>

#include <csetjmp>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

namespace io_test {

// A fresh directory per test under the scratch area, so tests may run in parallel.
inline std::string scratch_dir() {
  const testing::TestInfo* info = testing::UnitTest::GetInstance()->current_test_info();
  const std::filesystem::path dir =
      std::filesystem::path(QUILLARA_TEST_TMP) / (std::string(info->test_suite_name()) + "_" + info->name());
  std::filesystem::create_directories(dir);
  return dir.string();
}

// The test's scratch folder, emptied, so that a rerun starts from nothing.
inline std::string fresh_scratch_dir() {
  std::filesystem::remove_all(scratch_dir());
  return scratch_dir();
}

inline std::string scratch_path(const std::string& name) { return scratch_dir() + "/" + name; }

inline void write_bytes(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

inline std::string read_bytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Writes a PNG of any colour type from packed rows as libpng expects them (16-bit samples
// big-endian). Palette images get a grey palette.
inline void write_raw_png(const std::string& path, int width, int height, int color_type, int bit_depth,
                          std::vector<unsigned char> bytes) {
  std::FILE* fp = std::fopen(path.c_str(), "wb");
  ASSERT_NE(fp, nullptr) << path;
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  std::vector<png_bytep> rows(static_cast<std::size_t>(height));
  for (int y = 0; y < height; ++y) rows[y] = bytes.data() + bytes.size() / height * y;
  png_color palette[256];
  for (int i = 0; i < 256; ++i) palette[i] = png_color{png_byte(i), png_byte(i), png_byte(i)};
  if (setjmp(png_jmpbuf(png)) == 0) {
    png_init_io(png, fp);
    png_set_IHDR(png, info, width, height, bit_depth, color_type, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    if (color_type == PNG_COLOR_TYPE_PALETTE) png_set_PLTE(png, info, palette, 256);
    png_write_info(png, info);
    png_write_image(png, rows.data());
    png_write_end(png, info);
  } else {
    ADD_FAILURE() << "libpng could not write " << path;
  }
  png_destroy_write_struct(&png, &info);
  std::fclose(fp);
}

// Runs f and expects a std::runtime_error with exactly the given text.
inline void expect_runtime_error(const std::function<void()>& f, const std::string& text) {
  try {
    f();
    ADD_FAILURE() << "no exception, expected: " << text;
  } catch (const std::runtime_error& e) {
    EXPECT_EQ(std::string(e.what()), text);
  }
}

}  // namespace io_test
