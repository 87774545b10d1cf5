#pragma once

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <utility>

// Owning three-dimensional host image with separate planes: element (x, y, z) lies at
// data[(z * ySize + y) * xSize + x], so plane 0 of a colour image holds all red samples.
// Copies are deep.
template <typename T>
class CTensor {
 public:
  CTensor() = default;
  CTensor(int xSize, int ySize, int zSize) { setSize(xSize, ySize, zSize); }
  CTensor(const CTensor& other) { copyFrom(other); }
  CTensor(CTensor&& other) noexcept
      : xSize(other.xSize), ySize(other.ySize), zSize(other.zSize), data(other.data) {
    other.xSize = 0;
    other.ySize = 0;
    other.zSize = 0;
    other.data = nullptr;
  }
  CTensor& operator=(const CTensor& other) {
    if (this != &other) {
      CTensor copy(other);  // allocate before the old storage goes
      *this = std::move(copy);
    }
    return *this;
  }
  CTensor& operator=(CTensor&& other) noexcept {
    if (this != &other) {
      delete[] data;
      xSize = other.xSize;
      ySize = other.ySize;
      zSize = other.zSize;
      data = other.data;
      other.xSize = 0;
      other.ySize = 0;
      other.zSize = 0;
      other.data = nullptr;
    }
    return *this;
  }
  virtual ~CTensor() { delete[] data; }

  // Replaces the storage by xSize * ySize * zSize zero-initialised elements.
  void setSize(int newXSize, int newYSize, int newZSize) {
    if (newXSize < 0 || newYSize < 0 || newZSize < 0)
      throw std::runtime_error("CTensor::setSize: sizes must not be negative (" + std::to_string(newXSize) +
                               ", " + std::to_string(newYSize) + ", " + std::to_string(newZSize) + ")");
    T* fresh = nullptr;
    const std::size_t n = static_cast<std::size_t>(newXSize) * static_cast<std::size_t>(newYSize) *
                          static_cast<std::size_t>(newZSize);
    if (n > 0) fresh = new T[n]();
    delete[] data;
    data = fresh;
    xSize = newXSize;
    ySize = newYSize;
    zSize = newZSize;
  }

  void fill(const T& value) { std::fill(data, data + size(), value); }

  // Number of elements over all planes.
  std::size_t size() const {
    return static_cast<std::size_t>(xSize) * static_cast<std::size_t>(ySize) * static_cast<std::size_t>(zSize);
  }

  T& operator()(int x, int y, int z) { return data[(static_cast<std::size_t>(z) * ySize + y) * xSize + x]; }
  const T& operator()(int x, int y, int z) const {
    return data[(static_cast<std::size_t>(z) * ySize + y) * xSize + x];
  }

  // Readers, for CTensor<float>. readFromImage chooses the format by the file name's extension.
  void readFromImage(const char* filename);
  void readFromPPM(const char* filename);
  void readFromPGM(const char* filename);
  void readFromPNG(const char* filename, bool ignoreAlpha);
  void readFromJPEG(const char* filename);  // three planes; greyscale files give three equal ones

  // Writers, for CTensor<unsigned char>; writeToPNG also for CTensor<float>.
  void writeToImage(const char* filename);
  void writeToPPM(const char* filename) const;
  void writeToPGM(const char* filename) const;
  void writeToPNG(const char* filename) const;

  int xSize = 0;
  int ySize = 0;
  int zSize = 0;
  T* data = nullptr;

 private:
  void copyFrom(const CTensor& other) {
    if (other.data != nullptr && other.size() > 0) {
      data = new T[other.size()];
      std::copy(other.data, other.data + other.size(), data);
    }
    xSize = other.xSize;
    ySize = other.ySize;
    zSize = other.zSize;
  }
};

template <>
void CTensor<float>::readFromImage(const char* filename);
template <>
void CTensor<float>::readFromPPM(const char* filename);
template <>
void CTensor<float>::readFromPGM(const char* filename);
template <>
void CTensor<float>::readFromPNG(const char* filename, bool ignoreAlpha);
template <>
void CTensor<float>::readFromJPEG(const char* filename);
template <>
void CTensor<unsigned char>::writeToImage(const char* filename);
template <>
void CTensor<unsigned char>::writeToPPM(const char* filename) const;
template <>
void CTensor<unsigned char>::writeToPGM(const char* filename) const;
template <>
void CTensor<unsigned char>::writeToPNG(const char* filename) const;
template <>
void CTensor<float>::writeToPNG(const char* filename) const;
