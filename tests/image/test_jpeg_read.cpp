#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "image/CTensor.h"
#include "tests/support/io_test_support.h"
#include "tools/scene/jpeg_file.h"

using io_test::expect_runtime_error;
using io_test::read_bytes;
using io_test::scratch_path;
using io_test::write_bytes;

namespace {

// A smooth colour ramp, which JPEG keeps within a few levels.
std::vector<uint8_t> ramp(int width, int height) {
  std::vector<uint8_t> rgb;
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x)
      for (int c : {x * 255 / (width - 1), y * 255 / (height - 1), 128}) rgb.push_back(static_cast<uint8_t>(c));
  return rgb;
}

CTensor<float> read_image(const std::string& path) {
  CTensor<float> t;
  t.readFromImage(path.c_str());
  return t;
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
