#pragma once

#include <string>

// A word of a command printed for the user to paste: as it stands when it holds only characters
// that no POSIX shell treats specially, otherwise in single quotes (an inner ' written '\''), so
// that the shell takes it literally: a folder named o/d$(touch X) runs nothing.
std::string shell_quote(const std::string& word);
