#pragma once

#include <string>
#include <string_view>

// The 25 tokens of a view file, as written: K and R row by row, then t, the image size and the
// paths of the colour image and the depth map.
struct ViewFileTokens {
  float K[9] = {};
  float R[9] = {};
  float t[3] = {};
  int width = 0;
  int height = 0;
  std::string image_path;
  std::string depth_path;
};

// Reads the tokens from the text of a view file (any white space separates them, anything behind
// token 25 is ignored) and checks what a wrong file gets wrong: the token count, numbers that are
// not finite, a size or focal length that is not positive, and a rotation that is not one.
// Returns the reason in words, or an empty text when the file is fine.
std::string parse_view_file(std::string_view text, ViewFileTokens& view);
