#pragma once

// The one failure of the stage options' Check(): unless `ok`, throws std::runtime_error with
// "OPTIONS: SETTING must be RULE, got VALUE", for example "FilterOptions: radius must be positive
// and finite, got -1".
void check_setting(bool ok, const char* options, const char* setting, const char* rule, float value);
