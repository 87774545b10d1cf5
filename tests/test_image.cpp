#include <gtest/gtest.h>
#include <png.h>

#include <filesystem>
#include <string>
#include <vector>

#include "device/vector_types.h"
#include "image/CMatrix.h"
#include "image/CTensor.h"
#include "image/EInvalidFileFormat.h"
#include "tests/io_test_support.h"

using io_test::expect_runtime_error;
using io_test::read_bytes;
using io_test::scratch_path;
using io_test::write_bytes;
using io_test::write_raw_png;

namespace {

const char* kTensorRefusal = "CTensor::readFromPNG: Format not supported.  Expected RGB(A) image with 8-bit per channel";
const char* kMatrixRefusal =
    "CMatrix::readFromPNG: Format not supported.  Expected Greyscale image with 8 or 16 bit per channel";

void read_tensor(const std::string& path) {
  CTensor<float> t;
  t.readFromPNG(path.c_str(), false);
}

void read_matrix(const std::string& path) {
  CMatrix<unsigned short> m;
  m.readFromPNG(path.c_str());
}

// Catches EInvalidFileFormat and returns what it printed.
template <typename F>
std::string invalid_format_message(F f) {
  testing::internal::CaptureStderr();
  bool thrown = false;
  try {
    f();
  } catch (const EInvalidFileFormat&) {
    thrown = true;
  }
  const std::string err = testing::internal::GetCapturedStderr();
  EXPECT_TRUE(thrown);
  return err;
}

}  // namespace

TEST(PngRead, RefusesFormatsOutsideEachReader) {
  const std::string palette = scratch_path("palette.png");
  write_raw_png(palette, 2, 1, PNG_COLOR_TYPE_PALETTE, 8, {1, 2});
  const std::string grey = scratch_path("grey.png");
  write_raw_png(grey, 2, 1, PNG_COLOR_TYPE_GRAY, 8, {1, 2});
  const std::string rgb = scratch_path("rgb.png");
  write_raw_png(rgb, 1, 1, PNG_COLOR_TYPE_RGB, 8, {1, 2, 3});
  const std::string rgb16 = scratch_path("rgb16.png");
  write_raw_png(rgb16, 1, 1, PNG_COLOR_TYPE_RGB, 16, {0, 1, 0, 2, 0, 3});
  const std::string grey_alpha = scratch_path("grey_alpha.png");
  write_raw_png(grey_alpha, 1, 1, PNG_COLOR_TYPE_GRAY_ALPHA, 8, {1, 2});
  const std::string grey4 = scratch_path("grey4.png");
  write_raw_png(grey4, 2, 1, PNG_COLOR_TYPE_GRAY, 4, {0x12});

  expect_runtime_error([&] { read_tensor(palette); }, kTensorRefusal);
  expect_runtime_error([&] { read_tensor(grey); }, kTensorRefusal);
  expect_runtime_error([&] { read_tensor(rgb16); }, kTensorRefusal);
  expect_runtime_error([&] { read_matrix(rgb); }, kMatrixRefusal);
  expect_runtime_error([&] { read_matrix(palette); }, kMatrixRefusal);
  expect_runtime_error([&] { read_matrix(grey_alpha); }, kMatrixRefusal);
  expect_runtime_error([&] { read_matrix(grey4); }, kMatrixRefusal);
}

TEST(PngRead, FileFailuresNameTheFile) {
  const std::string missing = scratch_path("missing.png");
  expect_runtime_error([&] { read_tensor(missing); }, "CTensor::readFromPNG: Cannot open file " + missing);
  expect_runtime_error([&] { read_matrix(missing); }, "CMatrix::readFromPNG: Cannot open file " + missing);
  expect_runtime_error([&] { read_matrix(""); }, "CMatrix::readFromPNG: Cannot open file ");

  const std::string tiny = scratch_path("tiny.png");
  write_bytes(tiny, "\x89PNG");
  expect_runtime_error([&] { read_tensor(tiny); }, "CTensor::readFromPNG: Could not read header of file " + tiny);

  const std::string text = scratch_path("text.png");
  write_bytes(text, "this is not an image at all");
  expect_runtime_error([&] { read_tensor(text); }, "CTensor::readFromPNG: File " + text + " is not a PNG");
  expect_runtime_error([&] { read_matrix(text); }, "CMatrix::readFromPNG: File " + text + " is not a PNG");
}

TEST(PngRead, TruncatedFilesFailInTheirStage) {
  const std::string whole = scratch_path("whole.png");
  std::vector<unsigned char> pixels(64 * 64 * 3);
  for (std::size_t i = 0; i < pixels.size(); ++i) pixels[i] = static_cast<unsigned char>(i * 7919 % 251);
  write_raw_png(whole, 64, 64, PNG_COLOR_TYPE_RGB, 8, pixels);
  const std::string bytes = read_bytes(whole);

  // Signature and part of the image header: libpng fails while reading the header.
  const std::string in_header = scratch_path("in_header.png");
  write_bytes(in_header, bytes.substr(0, 20));
  testing::internal::CaptureStderr();  // libpng reports its own reason as well
  expect_runtime_error([&] { read_tensor(in_header); }, "CTensor::readFromPNG: png_init_io failed");

  // Cut inside the image data.
  const std::string in_data = scratch_path("in_data.png");
  write_bytes(in_data, bytes.substr(0, bytes.size() / 2));
  expect_runtime_error([&] { read_tensor(in_data); }, "CTensor::readFromPNG: png_read_image failed");
  testing::internal::GetCapturedStderr();
}

TEST(PngRead, GreySamplesKeepTheirValue) {
  const std::string g16 = scratch_path("g16.png");
  io_test::write_grey16_png(g16, 3, 2, {0x1234, 0, 0xffff, 1, 0x8000, 0x00ff});
  CMatrix<unsigned short> m;
  m.readFromPNG(g16.c_str());
  ASSERT_EQ(m.xSize, 3);
  ASSERT_EQ(m.ySize, 2);
  EXPECT_EQ(m(0, 0), 0x1234);
  EXPECT_EQ(m(2, 0), 0xffff);
  EXPECT_EQ(m(0, 1), 1);
  EXPECT_EQ(m(1, 1), 0x8000);
  EXPECT_EQ(m(2, 1), 0x00ff);

  const std::string g8 = scratch_path("g8.png");
  write_raw_png(g8, 2, 1, PNG_COLOR_TYPE_GRAY, 8, {200, 7});
  m.readFromPNG(g8.c_str());
  EXPECT_EQ(m.xSize, 2);
  EXPECT_EQ(m(0, 0), 200);  // widened, not scaled
  EXPECT_EQ(m(1, 0), 7);
}

TEST(PngRead, RgbaWithAndWithoutAlpha) {
  const std::string path = scratch_path("rgba.png");
  write_raw_png(path, 2, 1, PNG_COLOR_TYPE_RGBA, 8, {10, 20, 30, 40, 50, 60, 70, 80});
  CTensor<float> t;
  t.readFromPNG(path.c_str(), false);
  ASSERT_EQ(t.zSize, 4);
  EXPECT_EQ(t(0, 0, 0), 10.0f);
  EXPECT_EQ(t(0, 0, 3), 40.0f);
  EXPECT_EQ(t(1, 0, 0), 50.0f);
  EXPECT_EQ(t(1, 0, 3), 80.0f);
  EXPECT_EQ(t.data[1], 50.0f);  // planar: all red samples first

  t.readFromPNG(path.c_str(), true);
  ASSERT_EQ(t.zSize, 3);
  const std::vector<float> expected = {10, 50, 20, 60, 30, 70};
  EXPECT_EQ(std::vector<float>(t.data, t.data + t.size()), expected);

  // RGB keeps three planes; a failed read leaves the tensor as it was.
  const std::string rgb = scratch_path("rgb.png");
  write_raw_png(rgb, 1, 1, PNG_COLOR_TYPE_RGB, 8, {1, 2, 3});
  t.readFromImage(rgb.c_str());
  ASSERT_EQ(t.zSize, 3);
  EXPECT_EQ(t(0, 0, 2), 3.0f);
  EXPECT_THROW(t.readFromPNG(scratch_path("missing.png").c_str(), false), std::runtime_error);
  EXPECT_EQ(t.xSize, 1);
  EXPECT_EQ(t(0, 0, 1), 2.0f);
}

TEST(ImageFiles, ExtensionChoosesTheFormat) {
  const std::string dir = io_test::scratch_dir();
  io_test::WorkingDirectory cwd(dir);
  CTensor<unsigned char> rgb(2, 1, 3);
  for (int i = 0; i < 6; ++i) rgb.data[i] = static_cast<unsigned char>(i + 1);

  rgb.writeToImage("png");  // no full stop: the whole name is the extension
  CTensor<float> back;
  back.readFromImage("png");
  ASSERT_EQ(back.zSize, 3);
  EXPECT_EQ(back(1, 0, 2), 6.0f);

  rgb.writeToImage("copy.PPM");
  EXPECT_EQ(read_bytes("copy.PPM").substr(0, 13), "P6 \n2 1 \n255\n");
  rgb.writeToImage("tiles.pgm");
  EXPECT_EQ(read_bytes("tiles.pgm").substr(0, 4), "P5 \n");

  expect_runtime_error([&] { rgb.writeToImage("photo.Png"); }, "Image file format not supported");
  expect_runtime_error([&] { back.readFromImage("photo.Png"); }, "Image file format not supported");
  expect_runtime_error([&] { back.readFromImage("photo.jpg"); }, "Image file format not supported");
  expect_runtime_error([&] { back.readFromImage("a.png.txt"); }, "Image file format not supported");
  EXPECT_FALSE(std::filesystem::exists("photo.Png"));
}

TEST(Ppm, RoundTripAndHeaderVariants) {
  const std::string path = scratch_path("rgb.ppm");
  CTensor<unsigned char> rgb(3, 2, 3);
  for (std::size_t i = 0; i < rgb.size(); ++i) rgb.data[i] = static_cast<unsigned char>(i * 13);
  rgb.writeToPPM(path.c_str());
  EXPECT_EQ(read_bytes(path).size(), std::string("P6 \n3 2 \n255\n").size() + 18);
  CTensor<float> t;
  t.readFromPPM(path.c_str());
  ASSERT_EQ(t.xSize, 3);
  ASSERT_EQ(t.ySize, 2);
  ASSERT_EQ(t.zSize, 3);
  for (std::size_t i = 0; i < rgb.size(); ++i) EXPECT_EQ(t.data[i], rgb.data[i]) << i;

  // Leading junk, comments, empty lines; P5 gives one plane.
  const std::string grey = scratch_path("grey.ppm");
  write_bytes(grey, "xxP5\n# made by hand\n\n2 2\n255\nABCD");
  t.readFromPPM(grey.c_str());
  ASSERT_EQ(t.zSize, 1);
  EXPECT_EQ(std::vector<float>(t.data, t.data + 4), (std::vector<float>{'A', 'B', 'C', 'D'}));
}

TEST(Ppm, ShortFileReadsMinusOne) {
  const std::string path = scratch_path("short.ppm");
  write_bytes(path, "P6\n2 1\n255\n\x01\x02\x03\x04");
  CTensor<float> t;
  t.readFromPPM(path.c_str());
  ASSERT_EQ(t.size(), 6u);
  // Pixel 0 is (1, 2, 3); pixel 1 has only its red byte.
  EXPECT_EQ(std::vector<float>(t.data, t.data + 6), (std::vector<float>{1, 4, 2, -1, 3, -1}));

  // Header cut short: nothing left to read, every sample is -1 or the size is 0.
  const std::string cut = scratch_path("cut.ppm");
  write_bytes(cut, "P6\n2");
  t.readFromPPM(cut.c_str());
  EXPECT_EQ(t.xSize, 2);
  EXPECT_EQ(t.ySize, 0);
}

TEST(Ppm, WrongMagicAndMissingFile) {
  const std::string p3 = scratch_path("ascii.ppm");
  write_bytes(p3, "P3\n1 1\n255\n1 2 3\n");
  CTensor<float> t;
  EXPECT_EQ(invalid_format_message([&] { t.readFromPPM(p3.c_str()); }),
            "Exception EInvalidFileFormat: File is not in PPM format\n");
  EXPECT_EQ(invalid_format_message([&] { t.readFromPGM(p3.c_str()); }),
            "Exception EInvalidFileFormat: File is not in PGM format\n");

  const std::string missing = scratch_path("missing.ppm");
  EXPECT_EQ(invalid_format_message([&] { t.readFromPPM(missing.c_str()); }),
            "File not found: " + missing + "\nException EInvalidFileFormat: File is not in PPM format\n");

  const std::string huge = scratch_path("huge.ppm");
  write_bytes(huge, "P6\n99999999999 2\n255\n");
  EXPECT_EQ(invalid_format_message([&] { t.readFromPPM(huge.c_str()); }),
            "Exception EInvalidFileFormat: File is not in PPM format\n");
}

TEST(Pgm, MaximumValueBecomesTheFirstPixels) {
  const std::string path = scratch_path("usual.pgm");
  write_bytes(path, "P5\n3 2\n255\n\x0a\x0b\x0c\x0d\x0e\x0f");
  CTensor<float> t;
  t.readFromPGM(path.c_str());
  ASSERT_EQ(t.xSize, 3);
  ASSERT_EQ(t.ySize, 2);
  ASSERT_EQ(t.zSize, 1);
  EXPECT_EQ(std::vector<float>(t.data, t.data + 6), (std::vector<float>{'2', '5', '5', '\n', 10, 11}));
}

TEST(Pgm, WriterTilesPlanes) {
  const std::string path = scratch_path("tiles.pgm");
  CTensor<unsigned char> t(2, 1, 5);  // plane z holds z + 1 and z + 11
  for (int z = 0; z < 5; ++z) {
    t(0, 0, z) = static_cast<unsigned char>(z + 1);
    t(1, 0, z) = static_cast<unsigned char>(z + 11);
  }
  t.writeToPGM(path.c_str());
  // 2 rows by 3 columns of tiles, the sixth tile empty.
  EXPECT_EQ(read_bytes(path), std::string("P5 \n6 2 \n255\n") + "\x01\x0b\x02\x0c\x03\x0d" +
                                  std::string("\x04\x0e\x05\x0f\x00\x00", 6));

  CTensor<unsigned char> one(2, 2, 1);
  for (int i = 0; i < 4; ++i) one.data[i] = static_cast<unsigned char>('a' + i);
  one.writeToPGM(path.c_str());
  EXPECT_EQ(read_bytes(path), "P5 \n2 2 \n255\nabcd");
}

TEST(PngWrite, FloatSamplesWrapAndTruncate) {
  const std::string path = scratch_path("wrap.png");
  CTensor<float> t(3, 1, 3);
  const std::vector<float> values = {256.0f, -1.0f, 3.9f, 255.0f, -0.5f, 511.0f, 0.0f, 1000.0f, -256.0f};
  std::copy(values.begin(), values.end(), t.data);
  t.writeToPNG(path.c_str());
  CTensor<float> back;
  back.readFromPNG(path.c_str(), false);
  ASSERT_EQ(back.zSize, 3);
  const std::vector<float> expected = {0, 255, 3, 255, 0, 255, 0, 232, 0};
  EXPECT_EQ(std::vector<float>(back.data, back.data + back.size()), expected);
}

TEST(PngWrite, RgbaRoundTripAndRefusals) {
  const std::string path = scratch_path("rgba.png");
  CTensor<unsigned char> t(2, 2, 4);
  for (std::size_t i = 0; i < t.size(); ++i) t.data[i] = static_cast<unsigned char>(17 * i);
  t.writeToPNG(path.c_str());
  CTensor<float> back;
  back.readFromPNG(path.c_str(), false);
  ASSERT_EQ(back.zSize, 4);
  for (std::size_t i = 0; i < t.size(); ++i) EXPECT_EQ(back.data[i], t.data[i]);

  const std::string grey = scratch_path("one_plane.png");
  CTensor<unsigned char> one(2, 2, 1);
  expect_runtime_error([&] { one.writeToPNG(grey.c_str()); }, "CTensor::writeToPNG: zSize must be 3 or 4");
  CTensor<float> onef(2, 2, 1);
  expect_runtime_error([&] { onef.writeToPNG(grey.c_str()); }, "CTensor::writeToPNG: zSize must be 3 or 4");
  EXPECT_FALSE(std::filesystem::exists(grey));

  const std::string nowhere = scratch_path("no/such/dir.png");
  expect_runtime_error([&] { t.writeToPNG(nowhere.c_str()); }, "CTensor::writeToPNG: Cannot open file " + nowhere);
}

TEST(Containers, CopiesAreDeep) {
  CMatrix<float> a(2, 3, 1.5f);
  CMatrix<float> b(a);
  a(1, 2) = 7.0f;
  EXPECT_EQ(b(1, 2), 1.5f);
  EXPECT_NE(a.data, b.data);

  CMatrix<float> c(5, 5);
  c = a;
  EXPECT_EQ(c.xSize, 2);
  EXPECT_EQ(c.ySize, 3);
  EXPECT_EQ(c(1, 2), 7.0f);
  a(1, 2) = 8.0f;
  EXPECT_EQ(c(1, 2), 7.0f);

  // A null source with sizes gives a null target with those sizes.
  CMatrix<uchar4> null_source;
  null_source.xSize = 4;
  null_source.ySize = 2;
  CMatrix<uchar4> d(3, 3);
  d = null_source;
  EXPECT_EQ(d.data, nullptr);
  EXPECT_EQ(d.xSize, 4);
  EXPECT_EQ(d.ySize, 2);
  null_source.xSize = 0;  // the test gave it sizes without storage
  null_source.ySize = 0;

  CTensor<float2> t(2, 2, 2);
  t(1, 1, 1) = make_float2(3, 4);
  CTensor<float2> u = t;
  t(1, 1, 1) = make_float2(5, 6);
  EXPECT_EQ(u(1, 1, 1).x, 3.0f);
  EXPECT_EQ(u.data[7].y, 4.0f);

  CMatrix<float3> e;
  EXPECT_EQ(e.xSize, 0);
  EXPECT_EQ(e.data, nullptr);
  EXPECT_THROW(e.setSize(-1, 2), std::runtime_error);
}

// Every prefix of a valid file, and single corrupted bytes, either read or fail with an
// exception; the sanitizer build checks that no read goes out of bounds.
TEST(MalformedFiles, ShortAndCorruptFilesFailCleanly) {
  const std::string good_png = scratch_path("good.png");
  std::vector<unsigned char> pixels(4 * 3 * 4);
  for (std::size_t i = 0; i < pixels.size(); ++i) pixels[i] = static_cast<unsigned char>(i * 37);
  write_raw_png(good_png, 4, 3, PNG_COLOR_TYPE_RGBA, 8, pixels);
  const std::string png = read_bytes(good_png);
  const std::string good16 = scratch_path("good16.png");
  io_test::write_grey16_png(good16, 3, 2, {1, 2, 3, 4, 5, 6});
  const std::string png16 = read_bytes(good16);
  const std::string ppm = std::string("P6\n# c\n3 2\n255\n") + std::string(18, '\x7f');

  const std::string path = scratch_path("bad.png");
  const std::string netpbm = scratch_path("bad.ppm");
  testing::internal::CaptureStderr();
  int failures = 0;
  auto attempt = [&](const std::function<void()>& read) {
    try {
      read();
    } catch (const std::runtime_error&) {
      ++failures;
    } catch (const EInvalidFileFormat&) {
      ++failures;
    }
  };
  for (std::size_t n = 0; n < png.size(); ++n) {
    write_bytes(path, png.substr(0, n));
    attempt([&] { read_tensor(path); });
  }
  for (std::size_t n = 0; n < png16.size(); ++n) {
    write_bytes(path, png16.substr(0, n));
    attempt([&] { read_matrix(path); });
  }
  for (std::size_t i = 8; i < png.size(); ++i) {
    std::string bad = png;
    bad[i] = static_cast<char>(bad[i] ^ 0x5a);
    write_bytes(path, bad);
    attempt([&] { read_tensor(path); });
  }
  for (std::size_t n = 0; n <= ppm.size(); ++n) {
    write_bytes(netpbm, ppm.substr(0, n));
    attempt([&] {
      CTensor<float> t;
      t.readFromPPM(netpbm.c_str());
    });
    attempt([&] {
      CTensor<float> t;
      t.readFromPGM(netpbm.c_str());
    });
  }
  testing::internal::GetCapturedStderr();
  EXPECT_GT(failures, 0);
}
