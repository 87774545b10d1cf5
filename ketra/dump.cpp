#include "ketra/dump.h"

#include <fstream>
#include <iostream>

#include "device/texture_array.h"
#include "ketra/tools.h"

namespace ketra {

template <class T, int N>
void writeArrayToFile(Array<T, N> const& a, std::string const& path) {
  Array<T, 4> src = internal::as4D(a);
  Array<T, 4> host = src;
  if (src.device != -1) {
    host = mallocHostArray<T>(src.extents, Packed);
    arrayCopy(host, src);
  }
  const uint4 e = src.extents;
  const std::size_t bytes = static_cast<std::size_t>(e.x) * e.y * e.z * e.w * sizeof(T);
  std::ofstream data(path, std::ios::binary | std::ios::trunc);
  data.write(reinterpret_cast<const char*>(host.data), static_cast<std::streamsize>(bytes));
  std::cout << "(" << e.x << ", " << e.y << ", " << e.z << ", " << e.w << ") " << "["
            << static_cast<float>(bytes) * 9.536743e-7f << " MB]" << " written to " << path << "\n";
  const device::ChannelFormatDesc f = device::channelDescOf<T>();
  std::ofstream info(path + ".ketrainfo", std::ios::trunc);
  info << e.x << " " << e.y << " " << e.z << " " << e.w << " " << static_cast<int>(f.f) << " " << f.x << " " << f.y
       << " " << f.z << " " << f.w << "\n";
  if (src.device != -1) freeArray(host);
}

template void writeArrayToFile<float, 3>(Array<float, 3> const&, std::string const&);
template void writeArrayToFile<float, 2>(Array<float, 2> const&, std::string const&);
template void writeArrayToFile<float, 4>(Array<float, 4> const&, std::string const&);

}  // namespace ketra
