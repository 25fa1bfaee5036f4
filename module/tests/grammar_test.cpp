// The GENOSTAT grammar as the host syntax parser receives it.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "../../refhost/parser/grammar.h"
#include "entry/GenoStatCommand.h"

namespace {

using namespace UPSpecTypes;

struct Expected {
  const char* name;
  ParamSpec spec;
  bool flag1;
  bool flag2;
  std::vector<std::string> values;
};

void expectParams(const SubComDescriptor& sub, const std::vector<Expected>& expected) {
  const auto& params = sub.impl().params;
  ASSERT_EQ(params.size(), expected.size()) << sub.impl().name;
  for (std::size_t i = 0; i < expected.size(); ++i) {
    const ParamDescriptor::Impl& p = params[i].impl();
    SCOPED_TRACE(sub.impl().name + " " + p.name);
    EXPECT_EQ(p.name, expected[i].name);
    EXPECT_EQ(p.spec, expected[i].spec);
    EXPECT_EQ(p.restricted, expected[i].flag1);
    EXPECT_EQ(p.valueRequired, expected[i].flag2);
    EXPECT_EQ(p.brackets, NoBrackets);
    EXPECT_EQ(p.values, expected[i].values);
  }
}

class GrammarTest : public ::testing::Test {
 protected:
  GrammarTest() : descriptor_("GENOSTAT") { genostat::entry::buildGrammar(descriptor_); }
  const SubComDescriptor& sub(std::size_t i) const { return descriptor_.impl().subcommands.at(i); }
  CommandDescriptor descriptor_;
};

TEST_F(GrammarTest, SubcommandsInOrderAllStandard) {
  const auto& subs = descriptor_.impl().subcommands;
  std::vector<std::string> names;
  for (const auto& s : subs) {
    names.push_back(s.impl().name);
    EXPECT_EQ(s.impl().spec, SubComStandard);
    EXPECT_FALSE(s.impl().required);
    EXPECT_FALSE(s.impl().repeatable);
  }
  EXPECT_EQ(names, (std::vector<std::string>{"JOB", "DESCRIPTIVES", "FREQUENCIES", "CORRELATIONS", "REGRESSION",
                                             "PRINT", "DELETE"}));
}

TEST_F(GrammarTest, Job) {
  expectParams(sub(0), {{"NAME", ParamLiteral, false, true, {}},
                        {"FILE", ParamLiteralList, false, true, {}},
                        {"FOLDER", ParamLiteral, false, true, {}},
                        {"ADAPTERS", ParamKeywordQualif, true, true, {}}});
  const ParamDescriptor::Impl& adapters = sub(0).impl().params.at(3).impl();
  ASSERT_EQ(adapters.qualifiers.size(), 4u);
  std::vector<std::string> names;
  for (const auto& q : adapters.qualifiers) names.push_back(q.impl().name);
  EXPECT_EQ(names, (std::vector<std::string>{"NONE", "ILLUMINA", "NEXTERA", "CUSTOM"}));
  for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(adapters.qualifiers[i].impl().spec, ParamSwitch);
  const ParamDescriptor::Impl& custom = adapters.qualifiers[3].impl();
  EXPECT_EQ(custom.spec, ParamQualifierValue);
  EXPECT_FALSE(custom.restricted);
  EXPECT_TRUE(custom.valueRequired);
}

TEST_F(GrammarTest, Analyses) {
  expectParams(sub(1), {{"VARIABLES", ParamNameList, true, true, {}},
                        {"SKEWNESS", ParamSwitch, false, false, {}},
                        {"KURTOSIS", ParamSwitch, false, false, {}}});
  expectParams(sub(2), {{"VARIABLES", ParamNameList, true, true, {}},
                        {"NTILES", ParamInteger, false, true, {}},
                        {"PERCENTILES", ParamNumberList, false, true, {}},
                        {"HISTOGRAM", ParamSwitch, false, false, {}},
                        {"QUARTILES", ParamSwitch, false, false, {}}});
  expectParams(sub(3), {{"VARIABLES", ParamNameList, true, true, {}},
                        {"PEARSON", ParamNameList, true, true, {"TRUE", "FALSE"}},
                        {"SPEARMAN", ParamSwitch, false, false, {}},
                        {"KENDALL", ParamSwitch, false, false, {}},
                        {"TWOTAIL", ParamSwitch, false, false, {}},
                        {"ONETAIL", ParamSwitch, false, false, {}}});
  expectParams(sub(4), {{"DEPENDENT", ParamNameList, true, true, {}},
                        {"INDEPENDENT", ParamNameList, true, true, {}},
                        {"NORMALPROBABILITYPLOT", ParamSwitch, false, false, {}},
                        {"METHOD", ParamNameList, true, true, {"ENTER", "STEPWISE", "BACKWARD", "FORWARD"}},
                        {"CI", ParamNumber, false, true, {}}});
}

TEST_F(GrammarTest, PrintAndDelete) {
  expectParams(sub(5), {{"SAMPLE_COUNT", ParamInteger, false, true, {}},
                        {"VARIABLE_COUNT", ParamInteger, false, true, {}},
                        {"MESSAGE", ParamInteger, false, true, {}}});
  expectParams(sub(6), {{"FILE", ParamLiteral, false, true, {}}});
}

TEST(KeywordMappingTest, KeywordsAreExactAnythingElseIsTheDefault) {
  using genostat::entry::adapterTypeFromKeyword;
  using genostat::entry::regressionMethodFromKeyword;
  const std::pair<const char*, AdapterType> adapters[] = {
      {"ILLUMINA", AdapterType::ILLUMINA}, {"NEXTERA", AdapterType::NEXTERA}, {"CUSTOM", AdapterType::CUSTOM},
      {"NONE", AdapterType::NONE},         {"illumina", AdapterType::NONE},   {"", AdapterType::NONE}};
  for (const auto& [word, type] : adapters) EXPECT_EQ(adapterTypeFromKeyword(word), type) << word;
  const std::pair<const char*, RegressionMethod> methods[] = {
      {"ENTER", RegressionMethod::ENTER},       {"STEPWISE", RegressionMethod::STEPWISE},
      {"BACKWARD", RegressionMethod::BACKWARD}, {"FORWARD", RegressionMethod::FORWARD},
      {"Forward", RegressionMethod::ENTER},     {"REMOVE", RegressionMethod::ENTER}};
  for (const auto& [word, method] : methods) EXPECT_EQ(regressionMethodFromKeyword(word), method) << word;
}

TEST(KeywordMappingTest, ConfidenceIntervalHasSixDecimals) {
  using genostat::entry::formatConfidenceInterval;
  EXPECT_EQ(formatConfidenceInterval(95), "95.000000");
  EXPECT_EQ(formatConfidenceInterval(90.5), "90.500000");
  EXPECT_EQ(formatConfidenceInterval(-1.25), "-1.250000");
  EXPECT_EQ(formatConfidenceInterval(1e300).size(), 301u + 7u);  // no truncation of huge values
}

}  // namespace
