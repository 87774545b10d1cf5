#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

// A view file: 25 white-space separated tokens, K and R row by row, t, the image width and height,
// and the paths of the colour image and the depth map. K has pixel centres at whole numbers and
// the principal point of the image as stored; R and t map world to camera coordinates in the
// pinhole frame turned 180 degrees about the optical axis (src/io/view_camera.h has the camera
// the program makes of it). The numbers are 32-bit floats, the precision of the program's cameras;
// they are held as double so that writers can put down any value at the text's precision.
struct ViewFile {
  double K[9] = {};
  double R[9] = {};
  double t[3] = {};
  int width = 0;
  int height = 0;
  std::string image_path;
  std::string depth_path;
};

// A view file, or a file it names, cannot be used: "view file "NAME": cause", the one line the
// programs report.
class ViewFileError : public std::runtime_error {
 public:
  ViewFileError(const std::string& file, const std::string& cause);
};

// Reads the tokens from the text of a view file (any white space separates them, anything behind
// token 25 is ignored) and checks what a wrong file gets wrong: the token count, numbers that are
// not finite, a size or focal length that is not positive, and a rotation that is not one.
// Returns the reason in words, or an empty text when the file is fine.
std::string parse_view_file(std::string_view text, ViewFile& view);

// Reads and checks a view file. Throws ViewFileError.
ViewFile read_view_file(const std::string& path);

// The 25 tokens, one line per matrix row, nine significant digits (every float reads back as
// itself), -0 written as 0.
std::string format_view_file(const ViewFile& view);

// Writes format_view_file(view) to path. Throws FileError.
void write_view_file(const std::string& path, const ViewFile& view);

// Runs read, a reader of the file at path that view_file names in its role ("colour image ",
// "depth map "); a failure becomes the view file's, with the reader's text as the cause.
template <typename Read>
void read_named_file(const std::string& view_file, const char* role, const std::string& path, Read read) {
  try {
    read();
  } catch (const std::exception& e) {
    throw ViewFileError(view_file, role + ("\"" + path + "\": ") + e.what());
  }
}
