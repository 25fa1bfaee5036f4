// What the golden cases cannot show: the module library's exports, the client's C functions given
// nulls, the job-name rule against the host's own parser, and the launch-size check, whose numbers
// depend on the machine.
#include "entry/GenoStatCommand.h"
#include "host/parser.h"
#include "host/tokens.h"
#include "module_test_support.h"
#include "zorvhost/commands.h"

namespace mt {
namespace {

TEST(Exports, ExactlyTheEntryTheClientFunctionsAndTheManager) {
  std::string error;
  const std::set<std::string> names = exportedNames(GENOSTAT_MODULE_LIBRARY, error);
  ASSERT_TRUE(error.empty()) << error;
  for (const std::string& name : names) {
    const bool manager = name.find("19GenoStatAlgoManager") != std::string::npos &&
                         (name.rfind("_ZN19", 0) == 0 || name.rfind("_ZNK19", 0) == 0 || name.rfind("_ZT", 0) == 0);
    EXPECT_TRUE(manager || name == "GENOSTAT" || name == "getGenoManagerInstance" || name == "cancelGenoJob")
        << "unexpected export: " << name;
  }
  for (const char* required :
       {"GENOSTAT", "getGenoManagerInstance", "cancelGenoJob", "_ZN19GenoStatAlgoManager18getManagerInstanceEv",
        "_ZN19GenoStatAlgoManager13addJobToQueueEP15GenoJobSettings",
        "_ZN19GenoStatAlgoManager21cancellAllJobsPendingEv", "_ZN19GenoStatAlgoManagerD1Ev"}) {
    EXPECT_EQ(names.count(required), 1u) << "missing export: " << required;
  }
}

TEST(ClientFunctions, CancelRefusesANullManagerOrJobName) {
  EXPECT_FALSE(cancelGenoJob(nullptr, "x"));
  EXPECT_FALSE(cancelGenoJob(getGenoManagerInstance(), nullptr));
}

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
  // Else a job would be refused that could have run, or run to a DATASET NAME the host refuses.
  for (const char* name : {"my run 1", "all", "Größe_Lauf", "日本", "a.b", "_x", "@tag", "run#1$", "run-2024-w12",
                           "12345", "Bob's run", "x.", "", "a/b", "semi;colon", "(x)", "a=b", ".hidden"}) {
    std::string carried = name;
    for (char& c : carried) c = c == ' ' ? '_' : c;
    const bool host = !carried.empty() && carried.find('\'') == std::string::npos && hostTakesDatasetName(carried);
    EXPECT_EQ(genostat::entry::datasetNameFault(name).empty(), host) << "'" << name << "'";
  }
}

class LaunchSize : public RunTest {};

TEST_F(LaunchSize, FileListTooLongForTheCommandLineIsRefusedSuggestingFolder) {
  const std::string fastq = scratch_.write("a.fq", "@r\nA\n+\nI\n");
  std::string files;
  for (int i = 0; i < 3000; ++i) files += " '" + fastq + "'";
  const Texts errors = runCommand("GENOSTAT /JOB FILE=" + files + " NAME='many'.");
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_EQ(errors[0].rfind("Value out of range: 3000 input files make a command line of ", 0), 0u) << errors[0];
  EXPECT_NE(errors[0].find("FOLDER='...'"), std::string::npos) << errors[0];
  EXPECT_TRUE(client_.messages().empty());
}

}  // namespace
}  // namespace mt
