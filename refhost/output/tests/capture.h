// A test fixture that collects the tables delivered to the output handler and the command errors
// recorded meanwhile, and leaves the process-wide handler and error list clean for the next test.
#pragma once

#include <gtest/gtest.h>

#include <vector>

#include "zorvhost/client.h"
#include "zorvhost/output.h"

namespace output_test {

class OutputCapture : public ::testing::Test {
 protected:
  void SetUp() override {
    zorvhost::takeCommandErrors();
    zorvhost::setOutputHandler([this](const zorvhost::OutputTable& t) { tables.push_back(t); });
  }
  void TearDown() override {
    zorvhost::setOutputHandler(nullptr);
    zorvhost::takeCommandErrors();
  }

  std::vector<zorvhost::OutputTable> tables;
};

}  // namespace output_test
