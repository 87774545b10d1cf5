#include <gtest/gtest.h>
#include <png.h>
#include <zlib.h>

#include <cmath>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "image/CMatrix.h"
#include "image/CTensor.h"
#include "image/EInvalidFileFormat.h"
#include "tests/support/io_test_support.h"
#include "tools/scene/jpeg_file.h"

using io_test::expect_runtime_error;
using io_test::read_bytes;
using io_test::scratch_path;
using io_test::write_bytes;
using io_test::write_raw_png;

namespace {

const std::string kTensorRefusal =
    "CTensor::readFromPNG: Format not supported.  Expected RGB(A) image with 8-bit per channel";
const std::string kMatrixRefusal =
    "CMatrix::readFromPNG: Format not supported.  Expected Greyscale image with 8 or 16 bit per channel";

CTensor<float> read_tensor(const std::string& path, bool ignore_alpha = false) {
  CTensor<float> t;
  t.readFromPNG(path.c_str(), ignore_alpha);
  return t;
}

CTensor<float> read_image(const std::string& path) {
  CTensor<float> t;
  t.readFromImage(path.c_str());
  return t;
}

CMatrix<unsigned short> read_matrix(const std::string& path) {
  CMatrix<unsigned short> m;
  m.readFromPNG(path.c_str());
  return m;
}

template <typename T>
std::vector<float> samples(const T& image) {
  return std::vector<float>(image.data, image.data + image.size());
}

// A smooth colour ramp, which JPEG keeps within a few levels.
std::vector<uint8_t> ramp(int width, int height) {
  std::vector<uint8_t> rgb;
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x)
      for (int c : {x * 255 / (width - 1), y * 255 / (height - 1), 128}) rgb.push_back(static_cast<uint8_t>(c));
  return rgb;
}

double mean_abs_difference(const CTensor<float>& t, const std::vector<uint8_t>& interleaved, int components) {
  double sum = 0;
  for (int y = 0; y < t.ySize; ++y)
    for (int x = 0; x < t.xSize; ++x)
      for (int z = 0; z < t.zSize; ++z)
        sum += std::abs(t(x, y, z) -
                        interleaved[(static_cast<size_t>(y) * t.xSize + x) * components + (components == 1 ? 0 : z)]);
  return sum / static_cast<double>(t.size());
}

}  // namespace

TEST(PngRead, EachReaderRefusesOtherFormats) {
  const std::string palette = scratch_path("palette.png"), grey = scratch_path("grey.png"),
                    rgb = scratch_path("rgb.png"), rgb16 = scratch_path("rgb16.png");
  write_raw_png(palette, 2, 1, PNG_COLOR_TYPE_PALETTE, 8, {1, 2});
  write_raw_png(grey, 2, 1, PNG_COLOR_TYPE_GRAY, 8, {1, 2});
  write_raw_png(rgb, 1, 1, PNG_COLOR_TYPE_RGB, 8, {1, 2, 3});
  write_raw_png(rgb16, 1, 1, PNG_COLOR_TYPE_RGB, 16, {0, 1, 0, 2, 0, 3});
  for (const std::string& path : {palette, grey, rgb16}) expect_runtime_error([&] { read_tensor(path); }, kTensorRefusal);
  for (const std::string& path : {palette, rgb, rgb16}) expect_runtime_error([&] { read_matrix(path); }, kMatrixRefusal);
}

// Failures are exceptions with the reader's text and nothing printed: the caller reports them.
TEST(PngRead, FileFailuresNameTheFile) {
  const std::string missing = scratch_path("missing.png"), tiny = scratch_path("tiny.png"),
                    text = scratch_path("text.png");
  write_bytes(tiny, "\x89PNG");
  write_bytes(text, "this is not an image at all");
  testing::internal::CaptureStderr();
  expect_runtime_error([&] { read_tensor(missing); }, "CTensor::readFromPNG: Cannot open file " + missing);
  expect_runtime_error([&] { read_matrix(""); }, "CMatrix::readFromPNG: Cannot open file ");
  expect_runtime_error([&] { read_tensor(tiny); }, "CTensor::readFromPNG: Could not read header of file " + tiny);
  expect_runtime_error([&] { read_matrix(text); }, "CMatrix::readFromPNG: File " + text + " is not a PNG");

  // Truncated in the image header, then in the image data.
  const std::string whole = scratch_path("whole.png"), cut = scratch_path("cut.png");
  std::vector<unsigned char> pixels(64 * 64 * 3);
  for (std::size_t i = 0; i < pixels.size(); ++i) pixels[i] = static_cast<unsigned char>(i * 7919 % 251);
  write_raw_png(whole, 64, 64, PNG_COLOR_TYPE_RGB, 8, pixels);
  const std::string bytes = read_bytes(whole);
  write_bytes(cut, bytes.substr(0, 20));
  expect_runtime_error([&] { read_tensor(cut); }, "CTensor::readFromPNG: png_init_io failed");
  write_bytes(cut, bytes.substr(0, bytes.size() / 2));
  expect_runtime_error([&] { read_tensor(cut); }, "CTensor::readFromPNG: png_read_image failed");
  // A header that promises more rows than the file can hold is refused before they are allocated.
  std::string huge = bytes;
  huge.replace(16, 8, std::string("\x00\x00\xea\x60\x00\x00\xea\x60", 8));  // 60000 x 60000
  const unsigned long crc = crc32(crc32(0, nullptr, 0), reinterpret_cast<const unsigned char*>(huge.data() + 12), 17);
  for (int k = 0; k < 4; ++k) huge[29 + k] = static_cast<char>(crc >> (24 - 8 * k));
  write_bytes(cut, huge);
  expect_runtime_error([&] { read_tensor(cut); }, "CTensor::readFromPNG: File " + cut + " is truncated");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(PngRead, SamplesKeepTheirValues) {
  const std::string g16 = scratch_path("g16.png"), g8 = scratch_path("g8.png"), rgba = scratch_path("rgba.png");
  write_raw_png(g16, 3, 1, PNG_COLOR_TYPE_GRAY, 16, {0x12, 0x34, 0xff, 0xff, 0, 1});  // big-endian in the file
  EXPECT_EQ(samples(read_matrix(g16)), (std::vector<float>{0x1234, 0xffff, 1}));
  write_raw_png(g8, 2, 1, PNG_COLOR_TYPE_GRAY, 8, {200, 7});
  EXPECT_EQ(samples(read_matrix(g8)), (std::vector<float>{200, 7}));  // widened, not scaled

  write_raw_png(rgba, 2, 1, PNG_COLOR_TYPE_RGBA, 8, {10, 20, 30, 40, 50, 60, 70, 80});
  CTensor<float> t = read_tensor(rgba);
  EXPECT_EQ(t.zSize, 4);
  EXPECT_EQ(samples(t), (std::vector<float>{10, 50, 20, 60, 30, 70, 40, 80}));  // planar
  t = read_tensor(rgba, true);
  EXPECT_EQ(t.zSize, 3);
  const std::vector<float> rgb_samples = {10, 50, 20, 60, 30, 70};
  EXPECT_EQ(samples(t), rgb_samples);

  // A failed read leaves the tensor as it was.
  EXPECT_THROW(t.readFromPNG(scratch_path("missing.png").c_str(), false), std::runtime_error);
  EXPECT_EQ(samples(t), rgb_samples);
}

TEST(ImageFiles, ExtensionChoosesTheFormat) {
  const std::filesystem::path old_cwd = std::filesystem::current_path();
  std::filesystem::current_path(io_test::scratch_dir());  // relative names without any full stop
  CTensor<unsigned char> rgb(2, 1, 3);
  for (int i = 0; i < 6; ++i) rgb.data[i] = static_cast<unsigned char>(i + 1);
  rgb.writeToImage("png");  // the whole name is the extension
  CTensor<float> back;
  back.readFromImage("png");
  EXPECT_EQ(samples(back), (std::vector<float>{1, 2, 3, 4, 5, 6}));
  rgb.writeToImage("copy.PPM");
  EXPECT_EQ(read_bytes("copy.PPM"), std::string("P6 \n2 1 \n255\n\x01\x03\x05\x02\x04\x06"));
  rgb.writeToImage("tiles.pgm");
  EXPECT_EQ(read_bytes("tiles.pgm").substr(0, 4), "P5 \n");
  for (const char* name : {"photo.Png", "photo.gif", "a.png.txt"}) {
    expect_runtime_error([&] { rgb.writeToImage(name); }, "Image file format not supported");
    expect_runtime_error([&] { back.readFromImage(name); }, "Image file format not supported");
  }
  EXPECT_FALSE(std::filesystem::exists("photo.Png"));
  std::filesystem::current_path(old_cwd);
}

TEST(Netpbm, ReaderQuirksAndFailures) {
  const std::string path = scratch_path("file.ppm");
  CTensor<float> t;
  // Junk before the magic, comments and empty lines; P5 gives one plane.
  write_bytes(path, "xxP5\n# made by hand\n\n2 2\n255\nABCD");
  t.readFromPPM(path.c_str());
  EXPECT_EQ(t.zSize, 1);
  EXPECT_EQ(samples(t), (std::vector<float>{'A', 'B', 'C', 'D'}));
  // PGM has no step for the maximum value: its digits and line end become the first pixels.
  write_bytes(path, "P5\n3 2\n255\n\x0a\x0b\x0c\x0d");
  t.readFromPGM(path.c_str());
  EXPECT_EQ(samples(t), (std::vector<float>{'2', '5', '5', '\n', 10, 11}));

  testing::internal::CaptureStderr();
  write_bytes(path, "P6\n2 1\n255\n\x01\x02\x03\x04");  // pixel 1 has only its red byte
  expect_runtime_error([&] { t.readFromPPM(path.c_str()); }, "CTensor::readFromPPM: File " + path + " is truncated");
  write_bytes(path, "P5\n40000 40000\n255\nAB");  // refused before gigabytes are allocated
  expect_runtime_error([&] { t.readFromPGM(path.c_str()); }, "CTensor::readFromPGM: File " + path + " is truncated");
  // Found by fuzzing: 30 bytes that used to allocate and fill 1.2 GB.
  write_bytes(path, std::string("P6\n999999+99# ee\xff\xff\xff\xff\xff\xff\xff\x0b>>>>\n\x12", 30));
  expect_runtime_error([&] { t.readFromPPM(path.c_str()); }, "CTensor::readFromPPM: File " + path + " is truncated");
  write_bytes(path, "P3\n1 1\n255\n1 2 3\n");  // a text variant is refused
  expect_runtime_error([&] { t.readFromPPM(path.c_str()); }, "File is not in PPM format");
  EXPECT_THROW(t.readFromPGM(path.c_str()), EInvalidFileFormat);
  const std::string missing = scratch_path("missing.ppm");
  expect_runtime_error([&] { t.readFromPPM(missing.c_str()); }, "CTensor::readFromPPM: Cannot open file " + missing);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(Netpbm, PgmWriterTilesPlanes) {
  const std::string path = scratch_path("tiles.pgm");
  CTensor<unsigned char> t(2, 1, 5);  // 2 rows by 3 columns of tiles, the sixth tile black
  for (int z = 0; z < 5; ++z) t(0, 0, z) = t(1, 0, z) = static_cast<unsigned char>('a' + z);
  t.writeToPGM(path.c_str());
  EXPECT_EQ(read_bytes(path), std::string("P5 \n6 2 \n255\naabbccddee\0\0", 25));
}

TEST(PngWrite, PlanesAndFileAreChecked) {
  const std::string grey = scratch_path("one_plane.png"), nowhere = scratch_path("no/such/dir.png");
  const std::string planes = "CTensor::writeToPNG: zSize must be 3 or 4";
  expect_runtime_error([&] { CTensor<float>(2, 2, 1).writeToPNG(grey.c_str()); }, planes);
  expect_runtime_error([&] { CTensor<unsigned char>(2, 2, 1).writeToPNG(grey.c_str()); }, planes);
  EXPECT_FALSE(std::filesystem::exists(grey));
  expect_runtime_error([&] { CTensor<unsigned char>(2, 2, 3).writeToPNG(nowhere.c_str()); },
                       "CTensor::writeToPNG: Cannot open file " + nowhere);
}

// Colour and greyscale files come back as three planes in the file's orientation, through every
// spelling of the extension that selects JPEG.
TEST(JpegRead, ColourAndGreyReadAsThreePlanes) {
  const int w = 37, h = 23;  // not multiples of the 8 x 8 blocks
  const std::vector<uint8_t> rgb = ramp(w, h);
  for (const char* name : {"ramp.jpg", "ramp.JPG", "ramp.jpeg", "ramp.JPEG"}) {
    const std::string path = scratch_path(name);
    scene::write_jpeg(path, w, h, 3, rgb, 98);
    const CTensor<float> t = read_image(path);
    ASSERT_EQ(t.xSize, w);
    ASSERT_EQ(t.ySize, h);
    ASSERT_EQ(t.zSize, 3);
    EXPECT_LT(mean_abs_difference(t, rgb, 3), 2.0) << name;
    EXPECT_NEAR(t(w - 1, 0, 0), 255, 8);  // red grows to the right, green downwards
    EXPECT_NEAR(t(0, h - 1, 1), 255, 8);
  }

  std::vector<uint8_t> grey(static_cast<size_t>(w) * h);
  for (size_t i = 0; i < grey.size(); ++i) grey[i] = static_cast<uint8_t>(i % w * 6);
  const std::string path = scratch_path("grey.jpg");
  scene::write_jpeg(path, w, h, 1, grey, 98);
  const CTensor<float> t = read_image(path);
  ASSERT_EQ(t.zSize, 3);
  EXPECT_LT(mean_abs_difference(t, grey, 1), 2.0);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) ASSERT_TRUE(t(x, y, 0) == t(x, y, 1) && t(x, y, 1) == t(x, y, 2));
}

TEST(JpegRead, FailuresNameTheFile) {
  const std::string good = scratch_path("good.jpg"), missing = scratch_path("missing.jpg"),
                    text = scratch_path("text.jpg"), cut = scratch_path("cut.jpg"), broken = scratch_path("broken.jpg"),
                    ended = scratch_path("ended.jpg"), huge = scratch_path("huge.jpg");
  scene::write_jpeg(good, 256, 192, 3, ramp(256, 192), 90);  // image data well beyond the headers
  const std::string bytes = read_bytes(good);
  write_bytes(text, "no image here");
  write_bytes(cut, bytes.substr(0, bytes.size() * 3 / 4));
  write_bytes(ended, bytes.substr(0, bytes.size() / 2) + "\xFF\xD9");  // end-of-image marker inside the scan
  // The frame header: a sample precision libjpeg does not decode, then 30000 x 30000 pixels
  // declared for the same few kilobytes of data.
  const size_t frame = bytes.find("\xFF\xC0");
  ASSERT_NE(frame, std::string::npos);
  write_bytes(broken, std::string(bytes).replace(frame + 4, 1, "\x07"));
  write_bytes(huge, std::string(bytes).replace(frame + 5, 4, "\x75\x30\x75\x30"));
  expect_runtime_error([&] { read_image(missing); }, "CTensor::readFromJPEG: Cannot open file " + missing);
  expect_runtime_error([&] { read_image(text); }, "CTensor::readFromJPEG: File " + text + " is not a JPEG");
  for (const std::string& path : {cut, ended})
    expect_runtime_error([&] { read_image(path); }, "CTensor::readFromJPEG: File " + path + " ends before its image data");
  expect_runtime_error([&] { read_image(huge); }, "CTensor::readFromJPEG: File " + huge +
                                                      " is 30000 x 30000 pixels, more than the 67108864 this reader "
                                                      "accepts; scale it down first");
  try {
    read_image(broken);
    ADD_FAILURE() << "a broken JPEG was read";
  } catch (const std::runtime_error& e) {  // libjpeg's reason follows in parentheses
    EXPECT_EQ(std::string(e.what()).rfind("CTensor::readFromJPEG: Could not read file " + broken + " (", 0), 0u)
        << e.what();
  }
  // JPEG is read only; mixed-case extensions select nothing, as for the other formats.
  CTensor<unsigned char> small(2, 2, 3);
  expect_runtime_error([&] { small.writeToImage(scratch_path("out.jpg").c_str()); }, "Image file format not supported");
  expect_runtime_error([&] { read_image(scratch_path("photo.Jpg")); }, "Image file format not supported");
}
