// Errors about one input file or the output file, carrying what the command line needs to pick
// its exit code and to name the file.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace genostat {

enum class InputErrorKind {
  Malformed,         // FASTQ text or a compressed stream that is damaged or truncated
  NotFound,          // the input does not exist or is a folder
  PermissionDenied,  // the input exists but may not be read
  ReadFailed,        // any other failure of the operating system while reading
  Unsupported,       // a compression this build cannot read
};

class InputError : public std::runtime_error {
 public:
  // `message` is the part after "<path>: ".
  InputError(InputErrorKind kind, std::string path, std::string message);

  InputErrorKind kind() const noexcept { return kind_; }
  const std::string& path() const noexcept { return path_; }
  const std::string& message() const noexcept { return message_; }

 private:
  InputErrorKind kind_;
  std::string path_;
  std::string message_;
};

// A malformed-input error positioned in the file's (decompressed) text: the message reads
// "record <R>, line <L>: <reason>", both numbers 1-based.
InputError malformedInput(const std::string& path, std::uint64_t record, std::uint64_t line,
                          const std::string& reason);

}  // namespace genostat
