#pragma once

#include <iosfwd>
#include <string>
#include <utility>
#include <vector>

namespace ketra::timer {

// How a time prints: 0 msec, 1 sec, 2 min, 3 h, 4 h:m:s, 5 each time in the largest unit that
// fits it, 6 all times in the largest unit that any printed time needs.
enum Format : int { Msec = 0, Sec = 1, Min = 2, Hour = 3, HourMinSec = 4, Auto = 5, AutoCommon = 6 };

// 0 sorts by name, then time; any other value by time alone.
enum Sorting : int { ByName = 0, ByTime = 1 };

void start(std::string const& name);
void stop(std::string const& name);
void reset(std::string const& name);
void clear();
bool isRunning(std::string const& name);
float elapsedTime(std::string const& name);

// An empty name prints every timer, otherwise the one named. `ascending` gives the direction.
void printToScreen(std::string const& name = "", Format format = Auto, Sorting sorting = ByName,
                   bool ascending = true);
void printToFile(std::string const& name, std::string const& path, Format format = Auto,
                 Sorting sorting = ByName, bool ascending = true);

namespace internal {
// Prints (name, milliseconds) rows as the print functions do; the timer table is not touched.
void printRows(std::ostream& out, std::vector<std::pair<std::string, float>> rows, Format format, Sorting sorting,
               bool ascending);
}  // namespace internal

}  // namespace ketra::timer
