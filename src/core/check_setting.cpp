#include "src/core/check_setting.h"

#include <sstream>
#include <stdexcept>

void check_setting(bool ok, const char* options, const char* setting, const char* rule, float value) {
  if (ok) return;
  std::ostringstream text;
  text << options << ": " << setting << " must be " << rule << ", got " << value;
  throw std::runtime_error(text.str());
}
