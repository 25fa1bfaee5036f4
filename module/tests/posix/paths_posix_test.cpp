// The input-file check against file permissions, which only POSIX can take away from the owner.
#include <unistd.h>

#include <filesystem>
#include <string>

#include "module_test_support.h"
#include "platform/platform.h"

namespace mt {
namespace {

TEST(PathChecks, UnreadableInputFileCannotBeOpened) {
  if (::geteuid() == 0) GTEST_SKIP() << "root reads any file; permissions cannot refuse it";
  ScratchFolder folder;
  const std::string secret = folder.write("secret.fastq", "data");
  std::filesystem::permissions(secret, std::filesystem::perms::none);
  EXPECT_EQ(genostat::platform::checkInputFile(secret), genostat::platform::InputFileCheck::CannotOpen);
}

}  // namespace
}  // namespace mt
