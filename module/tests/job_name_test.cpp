// Which job names the post-job syntax can carry: the module's own rule against the reference
// host's parser, which runs that syntax. They must agree on every case, or a job would be refused
// that could have run, or run to a DATASET NAME the host refuses.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "entry/GenoStatCommand.h"
#include "host/parser.h"
#include "host/tokens.h"
#include "zorvhost/client.h"
#include "zorvhost/commands.h"

namespace {

// True when the host reads `name` back from "DATASET NAME <name>." as that one name.
bool hostTakesDatasetName(const std::string& name) {
  CommandDescriptor descriptor = *zorvhost::findCommandDescriptor("DATASET NAME");
  zorvhost::setCommandText("DATASET NAME " + name + ".");
  ZORV_TokenSequence tokens(true);
  CommandSpec spec;
  UniversalParser parser(&tokens, &spec, &descriptor);
  const bool parsed = parser.getCommandSpecifications() == 0;
  zorvhost::takeCommandErrors();
  std::vector<std::string> names;
  return parsed && spec.getLeadingNames(names) && names == std::vector<std::string>{name};
}

TEST(JobName, TheModuleAcceptsExactlyTheNamesTheHostCanCarry) {
  const struct {
    const char* name;
    bool carried;
  } cases[] = {{"my run 1", true},     {"all", true},        {"Gr\xC3\xB6\xC3\x9F" "e_Lauf", true},
               {"\xE6\x97\xA5\xE6\x9C\xAC", true}, {"a.b", true}, {"_x", true}, {"@tag", true},
               {"run#1$", true},       {"run-2024-w12", false}, {"12345", false},  {"Bob's run", false},
               {"x.", false},          {"", false},          {"a/b", false},      {"semi;colon", false},
               {"(x)", false},         {"a=b", false},       {".hidden", false}};
  for (const auto& c : cases) {
    std::string carried = c.name;
    for (char& ch : carried) ch = ch == ' ' ? '_' : ch;
    const bool host = !carried.empty() && carried.find('\'') == std::string::npos && hostTakesDatasetName(carried);
    EXPECT_EQ(host, c.carried) << "the host on '" << c.name << "'";
    EXPECT_EQ(genostat::entry::datasetNameFault(c.name).empty(), c.carried) << "the module on '" << c.name << "'";
  }
}

}  // namespace
