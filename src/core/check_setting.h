#pragma once

#include <sstream>
#include <stdexcept>

// The one failure of the stage options' Check(): unless `ok`, throws std::runtime_error with
// "OPTIONS: SETTING must be RULE, got VALUE", for example "FilterOptions: alpha must be finite and
// not negative, got -1".
inline void check_setting(bool ok, const char* options, const char* setting, const char* rule, float value) {
  if (ok) return;
  std::ostringstream text;
  text << options << ": " << setting << " must be " << rule << ", got " << value;
  throw std::runtime_error(text.str());
}
