#pragma once

#include <string>
#include <vector>

#include "image/CMatrix.h"

// Dumps depth maps as one float array of the first map's width and height with one plane per map
// (ketra::writeArrayToFile: raw floats at path, the description at path + ".ketrainfo").
void saveDepthmapStack(const std::vector<CMatrix<float>>& depthmaps, const std::string& path);
