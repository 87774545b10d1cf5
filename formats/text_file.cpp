#include "formats/text_file.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

FileError::FileError(const std::string& path, const std::string& cause_text)
    : std::runtime_error(path + ": " + cause_text), cause(cause_text) {}

std::string read_text(const std::string& path, std::size_t limit) {
  if (std::filesystem::is_directory(path)) throw FileError(path, "is a directory");
  std::ifstream in(path, std::ios::binary);
  if (!in) throw FileError(path, std::string("cannot be opened: ") + std::strerror(errno));
  std::string text(limit, '\0');
  in.read(text.data(), static_cast<std::streamsize>(text.size()));
  if (in.bad()) throw FileError(path, "cannot be read");
  text.resize(static_cast<std::size_t>(in.gcount()));
  return text;
}

void write_text(const std::string& path, const std::string& text) {
  const auto fail = [&] { throw FileError(path, std::string("cannot be written: ") + std::strerror(errno)); };
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  if (!out) fail();
  out << text;
  out.close();
  if (!out) fail();
}
