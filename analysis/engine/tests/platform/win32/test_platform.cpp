#include "platform/test_platform.h"

#include <windows.h>

#include <stdexcept>

#include "platform/win32/wide.h"

namespace genostat::testing {
namespace {

class ExclusivelyOpenFile final : public UnreadableFile {
 public:
  explicit ExclusivelyOpenFile(HANDLE handle) : handle_(handle) {}
  ~ExclusivelyOpenFile() override { ::CloseHandle(handle_); }

 private:
  HANDLE handle_;
};

}  // namespace

std::unique_ptr<UnreadableFile> makeUnreadable(const std::string& path) {
  std::wstring wide;
  if (!platform::utf8ToWide(path, wide)) throw std::runtime_error("not UTF-8: " + path);
  const HANDLE handle = ::CreateFileW(wide.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr);
  if (handle == INVALID_HANDLE_VALUE) throw std::runtime_error("cannot open " + path);
  return std::make_unique<ExclusivelyOpenFile>(handle);
}

}  // namespace genostat::testing
