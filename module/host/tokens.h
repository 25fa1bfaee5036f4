// Host language library: the tokens of the command being run.
#pragma once

#include <memory>
#include <string>

#include "host/host_api.h"

// The token sequence of the command that the host's command processor is running. The module
// constructs one per GENOSTAT call and hands it to UniversalParser; it never inspects tokens itself.
//
// Threads: host command thread only.
class ZORV_HOST_API ZORV_TokenSequence {
 public:
  // `currentCommand` true: take the command that the host is running now (the only use the module
  // makes). False gives an empty sequence.
  explicit ZORV_TokenSequence(bool currentCommand);
  ~ZORV_TokenSequence();
  ZORV_TokenSequence(const ZORV_TokenSequence&) = delete;
  ZORV_TokenSequence& operator=(const ZORV_TokenSequence&) = delete;

  // The command's text as the host handed it over (the reference host's parser reads it).
  const std::string& commandText() const;

 private:
  std::string text_;
};
