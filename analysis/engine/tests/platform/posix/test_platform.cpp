#include "platform/test_platform.h"

#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>

namespace genostat::testing {
namespace {

class ModeZeroFile final : public UnreadableFile {
 public:
  ModeZeroFile(std::string path, mode_t mode) : path_(std::move(path)), mode_(mode) {}
  ~ModeZeroFile() override { ::chmod(path_.c_str(), mode_); }

 private:
  std::string path_;
  mode_t mode_;
};

}  // namespace

std::unique_ptr<UnreadableFile> makeUnreadable(const std::string& path) {
  if (::geteuid() == 0) return nullptr;  // root reads whatever the mode says
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0 || ::chmod(path.c_str(), 0) != 0) {
    throw std::runtime_error("cannot change the mode of " + path);
  }
  return std::make_unique<ModeZeroFile>(path, info.st_mode & 07777);
}

}  // namespace genostat::testing
