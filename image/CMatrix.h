#pragma once

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <utility>

// Owning two-dimensional host image, row-major: element (x, y) lies at data[y * xSize + x], row 0
// being the first row of the file it came from. Copies are deep.
template <typename T>
class CMatrix {
 public:
  CMatrix() = default;
  CMatrix(int xSize, int ySize) { setSize(xSize, ySize); }
  CMatrix(int xSize, int ySize, const T& value) {
    setSize(xSize, ySize);
    fill(value);
  }
  CMatrix(const CMatrix& other) { copyFrom(other); }
  CMatrix(CMatrix&& other) noexcept : xSize(other.xSize), ySize(other.ySize), data(other.data) {
    other.xSize = 0;
    other.ySize = 0;
    other.data = nullptr;
  }
  CMatrix& operator=(const CMatrix& other) {
    if (this != &other) {
      CMatrix copy(other);  // allocate before the old storage goes
      *this = std::move(copy);
    }
    return *this;
  }
  CMatrix& operator=(CMatrix&& other) noexcept {
    if (this != &other) {
      delete[] data;
      xSize = other.xSize;
      ySize = other.ySize;
      data = other.data;
      other.xSize = 0;
      other.ySize = 0;
      other.data = nullptr;
    }
    return *this;
  }
  virtual ~CMatrix() { delete[] data; }

  // Replaces the storage by xSize * ySize zero-initialised elements (null for an empty image).
  void setSize(int newXSize, int newYSize) {
    if (newXSize < 0 || newYSize < 0)
      throw std::runtime_error("CMatrix::setSize: sizes must not be negative (" + std::to_string(newXSize) +
                               ", " + std::to_string(newYSize) + ")");
    T* fresh = nullptr;
    const std::size_t n = static_cast<std::size_t>(newXSize) * static_cast<std::size_t>(newYSize);
    if (n > 0) fresh = new T[n]();
    delete[] data;
    data = fresh;
    xSize = newXSize;
    ySize = newYSize;
  }

  void fill(const T& value) { std::fill(data, data + size(), value); }

  // Number of elements.
  std::size_t size() const { return static_cast<std::size_t>(xSize) * static_cast<std::size_t>(ySize); }

  T& operator()(int x, int y) { return data[static_cast<std::size_t>(y) * xSize + x]; }
  const T& operator()(int x, int y) const { return data[static_cast<std::size_t>(y) * xSize + x]; }

  // Reads an 8 or 16-bit greyscale PNG; exists for CMatrix<unsigned short> only.
  void readFromPNG(const char* filename);

  int xSize = 0;
  int ySize = 0;
  T* data = nullptr;

 private:
  // Takes the other's sizes and a copy of its elements; a null source gives a null target.
  void copyFrom(const CMatrix& other) {
    if (other.data != nullptr && other.size() > 0) {
      data = new T[other.size()];
      std::copy(other.data, other.data + other.size(), data);
    }
    xSize = other.xSize;
    ySize = other.ySize;
  }
};

template <>
void CMatrix<unsigned short>::readFromPNG(const char* filename);
