#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "device/error.h"
#include "ketra/timer.h"

using namespace ketra::timer;

namespace {

using Rows = std::vector<std::pair<std::string, float>>;

std::string printed(Rows rows, Format format, Sorting sorting = ByName, bool ascending = true) {
  std::ostringstream out;
  internal::printRows(out, std::move(rows), format, sorting, ascending);
  return out.str();
}

}  // namespace

TEST(KetraTimer, FixedUnitsAndTheLargestFittingUnitAtItsThresholds) {
  const std::vector<std::tuple<float, Format, std::string>> cases = {
      {1000.0f, Msec, "1000.000 msec"}, {1500.0f, Sec, "1.500 sec"},         {90000.0f, Min, "1.500 min"},
      {5400000.0f, Hour, "1.500 h"},    {3723000.0f, HourMinSec, "1:02:03"}, {999.0f, HourMinSec, "0:00:00"},
      {999.9f, Auto, "999.900 msec"},   {1000.0f, Auto, "1.000 sec"},        {59999.0f, Auto, "59.999 sec"},
      {60000.0f, Auto, "1.000 min"},    {3600000.0f, Auto, "1.000 h"}};
  for (const auto& [ms, format, text] : cases) EXPECT_EQ(printed({{"a", ms}}, format), " a: " + text + "\n");
}

// Names align to the longest; a timer that was never started prints as 0.
TEST(KetraTimer, SpansAccumulateAndResetRestarts) {
  EXPECT_EQ(printed({{"rendering", 1.0f}, {"io", 2.0f}}, Msec), "        io: 2.000 msec\n rendering: 1.000 msec\n");
  clear();
  EXPECT_EQ(elapsedTime("never used"), 0.0f);
  EXPECT_FALSE(isRunning("never used"));
  stop("stopped first");  // before any start: nothing to add, no device error left
  EXPECT_EQ(elapsedTime("stopped first"), 0.0f);
  EXPECT_EQ(device::getLastError(), device::Success);
  start("t");
  start("t");  // starting a running timer keeps it running
  stop("t");
  EXPECT_FALSE(isRunning("t"));
  const float first = elapsedTime("t");
  start("t");
  stop("t");
  EXPECT_GE(elapsedTime("t"), first);
  reset("t");
  EXPECT_TRUE(isRunning("t"));
  EXPECT_EQ(elapsedTime("t"), 0.0f);
  stop("t");
  testing::internal::CaptureStdout();
  printToScreen("", Msec);
  const std::string out = testing::internal::GetCapturedStdout();
  EXPECT_NE(out.find("    never used: 0.000 msec\n stopped first: 0.000 msec\n             t: "), std::string::npos) << out;
  clear();
  testing::internal::CaptureStdout();
  printToScreen("", Msec);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}
