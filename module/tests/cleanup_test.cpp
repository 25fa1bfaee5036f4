// GENOSTAT /DELETE's removal of a job's result CSV.
#include <gtest/gtest.h>

#include <filesystem>

#include "entry_test_support.h"
#include "test_peer.h"

namespace {

using Peer = GenoStatAlgoManagerTestPeer;

class CleanUpTest : public ::testing::Test {
 protected:
  void remove(const std::string& path) {
    GenoJobSettings record;
    record.csvFilePath = path;
    manager_->cleanUpCSVFileCreated(&record);
  }
  entry_test::ScratchFolder dir_;
  std::unique_ptr<GenoStatAlgoManager> manager_ = Peer::make();
};

TEST_F(CleanUpTest, RemovesTheFileOnceAndThenDoesNothing) {
  const std::string csv = dir_.write("1731721138.csv", "a,b\n1,2\n");
  const std::string other = dir_.write("other.csv", "x\n");
  remove(csv);
  EXPECT_FALSE(entry_test::exists(csv));
  EXPECT_TRUE(entry_test::exists(other));
  remove(csv);  // a second delete finds nothing and says nothing
  EXPECT_FALSE(entry_test::exists(csv));
  EXPECT_TRUE(entry_test::exists(other));
}

TEST_F(CleanUpTest, LeavesFoldersAlone) {
  std::filesystem::create_directory(dir_.file("sub"));
  remove(dir_.file("sub"));
  EXPECT_TRUE(std::filesystem::is_directory(dir_.file("sub")));
  // An empty folder is what remove() would have deleted.
  EXPECT_TRUE(std::filesystem::is_empty(dir_.file("sub")));
}

TEST_F(CleanUpTest, MissingPathEmptyPathAndNullRecordAreNoErrors) {
  remove(dir_.file("never-written.csv"));
  remove("");
  manager_->cleanUpCSVFileCreated(nullptr);
  EXPECT_TRUE(std::filesystem::is_empty(dir_.path()));
}

}  // namespace
