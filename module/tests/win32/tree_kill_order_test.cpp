// Which processes a cancel ends on Windows, over a made-up process table: parent ids there may be
// stale, so a process that names the launcher as its parent but is older than the launcher is a
// stranger (a child of an ended process whose id the launcher was given) and must live.
#include <gtest/gtest.h>

#include <vector>

#include "platform/win32/process_win32.h"

namespace mt {
namespace {

using genostat::platform::win32::ProcessEntry;
using genostat::platform::win32::treeKillOrder;

TEST(TreeKillOrder, StrangersOlderThanTheirPresumedParentAndUnknownAgesAreLeftAlive) {
  // The launcher 100 was created at 50. 200 and its subtree are the children of an earlier
  // process 100 (created at 10 and 30): before, they were ended with the job, and the host could
  // be among them.
  const std::vector<ProcessEntry> table = {
      {0, 0, 0},       // the idle process, its own parent
      {100, 4, 50},    // the launcher
      {200, 100, 10},  // stranger: older than the launcher
      {201, 200, 30},  //   and its child, which has nothing to do with the job
      {300, 100, 60},  // the script
      {301, 300, 70},  //   its child
      {302, 301, 20},  //     a stranger under it: the script's child took an ended process's id
      {303, 301, 0},   //     creation time unreadable: not ended blindly
      {400, 100, 55},  // a second child of the launcher
      {300, 301, 80},  // a loop through a reused id is entered once
  };
  EXPECT_EQ(treeKillOrder(100, 50, table), (std::vector<DWORD>{301, 300, 400, 100}));
  EXPECT_EQ(treeKillOrder(7, 5, table), (std::vector<DWORD>{7})) << "no children: the root alone";
}

}  // namespace
}  // namespace mt
