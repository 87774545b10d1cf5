#include "src/app/model_files.h"

PlyColorNames model_color_names = PlyColorNames::diffuse;
