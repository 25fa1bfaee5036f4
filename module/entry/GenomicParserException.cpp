#include "entry/GenomicParserException.h"

namespace {

// Indexed by code. Code 15's text ends in a blank on purpose: the queue limit follows after ": ".
constexpr const char* kCodeTexts[] = {
    "Unknown error occurred",
    "Syntax error in command",
    "Invalid command",
    "Missing required parameter",
    "Invalid parameter value",
    "File not found",
    "Invalid file path",
    "Invalid folder path",
    "Error processing FASTQ file",
    "Invalid adapter type",
    "Missing custom adapter sequence",
    "Invalid variable name",
    "Duplicate variable name",
    "Invalid numeric value",
    "Value out of range",
    "Job queue threshold exceeded. Maximum allowed jobs in queue is ",
    "Maximum limit for automatic job names exceeded. It should not be more than 100",
    "Invalid job name",
    "Duplicate job name",
    // clang-format off
    "GENOSTAT procedure is not supported in command-line mode. Please use the interactive ZORV Statistics client.",
    // clang-format on
    "Error generating automatic job name",
    "Incompatible parameters",
    "Mutually exclusive parameters",
};
constexpr uint32_t kCodeCount = sizeof(kCodeTexts) / sizeof(kCodeTexts[0]);

}  // namespace

GenomicParserException::GenomicParserException(uint32_t code, const std::string& detail)
    : code_(code), message_(baseText(code)) {
  if (!detail.empty()) {
    message_ += ": ";
    message_ += detail;
  }
}

GenomicParserException::~GenomicParserException() = default;

const char* GenomicParserException::what() const noexcept { return message_.c_str(); }

const char* GenomicParserException::baseText(uint32_t code) noexcept {
  return code < kCodeCount ? kCodeTexts[code] : "Unspecified error";
}
