#include "tools/import/colmap_model.h"

#include <bit>
#include <fstream>
#include <iterator>

#include "tools/import/import_error.h"
#include "tools/import/text_file.h"

namespace importer {
namespace {

// Model names by their number in the binary files.
const char* const model_names[] = {"SIMPLE_PINHOLE",
                                   "PINHOLE",
                                   "SIMPLE_RADIAL",
                                   "RADIAL",
                                   "OPENCV",
                                   "OPENCV_FISHEYE",
                                   "FULL_OPENCV",
                                   "FOV",
                                   "SIMPLE_RADIAL_FISHEYE",
                                   "RADIAL_FISHEYE",
                                   "THIN_PRISM_FISHEYE"};

// Parameter count of a pinhole model, 0 for any other.
size_t pinhole_params(const std::string& model) { return model == "PINHOLE" ? 4 : model == "SIMPLE_PINHOLE" ? 3 : 0; }

[[noreturn]] void refuse_model(const std::string& path, uint32_t camera, const std::string& model) {
  fail(path, "camera " + std::to_string(camera) + " uses the " + model +
                 " model; only PINHOLE and SIMPLE_PINHOLE cameras can be imported (undistort the images first)");
}

bool valid_size(uint64_t size) { return size >= 1 && size <= 1000000; }

// Little-endian numbers from a binary file held in memory; a read past the end fails naming the file.
class BinaryFile {
 public:
  explicit BinaryFile(const std::string& path) : path_(path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) fail(path, "cannot open");
    data_.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  template <typename T>  // an unsigned integer type
  T read() {
    if (data_.size() - pos_ < sizeof(T)) truncated();
    T value = 0;
    for (size_t k = sizeof(T); k-- > 0;)
      value = static_cast<T>((value << 8) | static_cast<unsigned char>(data_[pos_ + k]));
    pos_ += sizeof(T);
    return value;
  }
  double read_double() { return std::bit_cast<double>(read<uint64_t>()); }
  std::string read_name() {
    const size_t end = data_.find('\0', pos_);
    if (end == std::string::npos) truncated();
    std::string name = data_.substr(pos_, end - pos_);
    pos_ = end + 1;
    return name;
  }
  void skip(uint64_t bytes) {
    if (bytes > data_.size() - pos_) truncated();
    pos_ += bytes;
  }
  void expect_end() const {
    if (pos_ != data_.size()) fail(path_, "has data behind its last entry");
  }
  [[noreturn]] void truncated() const {
    fail(path_, "ends in the middle of an entry (truncated, or not a sparse model file)");
  }
  const std::string& path() const { return path_; }

 private:
  std::string path_, data_;
  size_t pos_ = 0;
};

}  // namespace

std::vector<ColmapCamera> read_colmap_cameras_text(const std::string& path) {
  const TextFile file = read_text_file(path);
  std::vector<ColmapCamera> cameras;
  for (size_t i = 0; i < file.lines.size(); ++i) {
    if (is_blank_or_comment(file.lines[i])) continue;
    const std::vector<std::string> f = split_fields(file.lines[i]);
    ColmapCamera c;
    int64_t width = 0, height = 0;
    if (f.size() < 4 || !parse_number(f[0], c.id) || !parse_number(f[2], width) || !parse_number(f[3], height))
      file.fail_at(i, "expected CAMERA_ID MODEL WIDTH HEIGHT PARAMS...");
    if (!valid_size(width) || !valid_size(height)) file.fail_at(i, "image size out of range");
    c.model = f[1];
    c.width = static_cast<int>(width);
    c.height = static_cast<int>(height);
    const size_t count = pinhole_params(c.model);
    if (count == 0) refuse_model(path, c.id, c.model);
    if (f.size() != 4 + count)
      file.fail_at(i, "a " + c.model + " camera has " + std::to_string(count) + " parameters, found " +
                          std::to_string(f.size() - 4));
    c.params = numbers_at(file, i, f, 4, count, "numbers as camera parameters");
    cameras.push_back(c);
  }
  return cameras;
}

std::vector<ColmapCamera> read_colmap_cameras_binary(const std::string& path) {
  BinaryFile file(path);
  const uint64_t count = file.read<uint64_t>();
  std::vector<ColmapCamera> cameras;
  for (uint64_t n = 0; n < count; ++n) {
    ColmapCamera c;
    c.id = file.read<uint32_t>();
    const auto model = static_cast<int32_t>(file.read<uint32_t>());
    const uint64_t width = file.read<uint64_t>(), height = file.read<uint64_t>();
    const bool known = model >= 0 && model < static_cast<int32_t>(std::size(model_names));
    c.model = known ? model_names[model] : "unknown (number " + std::to_string(model) + ")";
    const size_t params = pinhole_params(c.model);
    if (params == 0) refuse_model(path, c.id, c.model);
    if (!valid_size(width) || !valid_size(height))
      fail(path, "camera " + std::to_string(c.id) + " has an image size out of range");
    c.width = static_cast<int>(width);
    c.height = static_cast<int>(height);
    for (size_t k = 0; k < params; ++k) c.params.push_back(file.read_double());
    cameras.push_back(c);
  }
  file.expect_end();
  return cameras;
}

// Each image takes two lines: the pose line, then its 2-D observations (possibly empty).
std::vector<ColmapImage> read_colmap_images_text(const std::string& path) {
  const TextFile file = read_text_file(path);
  std::vector<ColmapImage> images;
  for (size_t i = 0; i < file.lines.size(); ++i) {
    if (is_blank_or_comment(file.lines[i])) continue;
    const std::vector<std::string> f = split_fields(file.lines[i]);
    ColmapImage image;
    if (f.size() != 10 || !parse_number(f[0], image.id) || !parse_number(f[8], image.camera_id))
      file.fail_at(i, "expected IMAGE_ID QW QX QY QZ TX TY TZ CAMERA_ID NAME");
    const std::vector<double> v = numbers_at(file, i, f, 1, 7, "numbers as pose");
    image.rotation = {v[0], v[1], v[2], v[3]};
    image.translation = {v[4], v[5], v[6]};
    image.name = f[9];
    if (i + 1 < file.lines.size() && split_fields(file.lines[i + 1]).size() % 3 != 0)
      file.fail_at(i + 1, "expected 2-D points as triples X Y POINT3D_ID");
    ++i;  // the observations line
    images.push_back(image);
  }
  return images;
}

std::vector<ColmapImage> read_colmap_images_binary(const std::string& path) {
  BinaryFile file(path);
  const uint64_t count = file.read<uint64_t>();
  std::vector<ColmapImage> images;
  for (uint64_t n = 0; n < count; ++n) {
    ColmapImage image;
    image.id = file.read<uint32_t>();
    double v[7];
    for (double& x : v) x = file.read_double();
    image.rotation = {v[0], v[1], v[2], v[3]};
    image.translation = {v[4], v[5], v[6]};
    image.camera_id = file.read<uint32_t>();
    image.name = file.read_name();
    const uint64_t points = file.read<uint64_t>();
    if (points > UINT64_MAX / 24) file.truncated();
    file.skip(points * 24);  // x, y as double and the 3-D point id as uint64 each
    images.push_back(image);
  }
  file.expect_end();
  return images;
}

}  // namespace importer
