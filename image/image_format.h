#pragma once

// File formats chosen by the extension of an image file name.
enum class ImageFormat { PPM, PGM, PNG, JPEG };

// The extension is the text behind the last full stop, or the whole name if there is none. Only
// the all-lower and all-upper spellings count ("png", "PNG"; "jpg", "JPG", "jpeg", "JPEG" for
// JPEG, which is read but not written); anything else throws
// std::runtime_error "Image file format not supported".
ImageFormat image_format_from_name(const char* filename);
