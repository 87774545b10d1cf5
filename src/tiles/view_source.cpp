#include "src/tiles/view_source.h"

#include <iostream>

#include "src/io/read_view.h"

ViewSource view_files_source(const std::vector<std::string>& files) {
  return [&files](int i, Camera& camera, CMatrix<float>& depth) {
    std::cout << "Reading file " << files[i] << std::endl;
    read_view(files[i], i, camera, depth);
  };
}
