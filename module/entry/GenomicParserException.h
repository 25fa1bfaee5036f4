// The error of one GENOSTAT command: a numeric code with an optional detail. The entry catches it
// once and shows what() through the host parser's message object; the first one ends the command.
#pragma once

#include <cstdint>
#include <exception>
#include <string>

class GenomicParserException : public std::exception {
 public:
  // Codes the module throws; the texts are in baseText().
  enum Code : uint32_t {
    kFileNotFound = 5,
    kErrorProcessingFastq = 8,
    kValueOutOfRange = 14,
    kQueueThresholdExceeded = 15,
    kAutomaticNameLimit = 16,
    kInvalidJobName = 17,
    kDuplicateJobName = 18,
    kCommandLineMode = 19,
    kAutomaticNameError = 20,
  };

  // what() is the code's text, followed by ": " and `detail` when `detail` is not empty.
  explicit GenomicParserException(uint32_t code, const std::string& detail = std::string());
  ~GenomicParserException() override;

  const char* what() const noexcept override;
  uint32_t code() const noexcept { return code_; }

  // The text of `code` without any detail; "Unspecified error" for a code the table lacks.
  static const char* baseText(uint32_t code) noexcept;

 private:
  uint32_t code_;
  std::string message_;
};
