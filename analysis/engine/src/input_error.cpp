#include "genostat/input_error.h"

#include <utility>

namespace genostat {

InputError::InputError(InputErrorKind kind, std::string path, std::string message)
    : std::runtime_error(path + ": " + message),
      kind_(kind),
      path_(std::move(path)),
      message_(std::move(message)) {}

InputError malformedInput(const std::string& path, std::uint64_t record, std::uint64_t line,
                          const std::string& reason) {
  return InputError(
      InputErrorKind::Malformed, path,
      "record " + std::to_string(record) + ", line " + std::to_string(line) + ": " + reason);
}

}  // namespace genostat
