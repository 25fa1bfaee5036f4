// GENOSTAT's grammar, declared as the module declares it, through the parser: the values the
// module's interpreters read, and every kind of malformed command refused with its position.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "genostat_grammar.h"
#include "parse_helper.h"

namespace {

using parsertest::parseCommand;

class Genostat : public ::testing::Test {
 protected:
  Genostat() : descriptor_("GENOSTAT") { parsertest::buildGenostatGrammar(descriptor_); }

  // Parses a command that must pass; fails the test with the parser's message otherwise.
  void parseOk(const std::string& text) {
    auto outcome = parseCommand(descriptor_, spec_, text);
    ASSERT_EQ(outcome.result, 0) << outcome.error();
    ASSERT_TRUE(outcome.errors.empty());
  }

  ParamObj* param(const char* sub, const char* name) {
    SubComObj* s = spec_.getSubComObj(sub);
    return s ? s->getParamObj(name) : nullptr;
  }

  CommandDescriptor descriptor_;
  CommandSpec spec_;
};

TEST_F(Genostat, FullSubmitCommandDeliversWhatTheInterpretersRead) {
  parseOk(
      "GENOSTAT /JOB FILE='/data/a.fq' '/data/b.fq' NAME='my run' ADAPTERS=CUSTOM(acgt)\n"
      "  /DESCRIPTIVES VARIABLES=GC qc_score SKEWNESS\n"
      "  /FREQUENCIES VARIABLES=GC NTILES=4 PERCENTILES=5 95.5 HISTOGRAM QUARTILES\n"
      "  /CORRELATIONS VARIABLES=GC qc_score PEARSON=false SPEARMAN KENDALL TWOTAIL ONETAIL\n"
      "  /REGRESSION DEPENDENT=GC INDEPENDENT=Total_Sequences qc_score METHOD=stepwise CI=95.0\n"
      "    NORMALPROBABILITYPLOT.");

  std::vector<std::string> files;
  ASSERT_TRUE(param("JOB", "FILE")->getLiteralList(files));
  EXPECT_EQ(files, (std::vector<std::string>{"/data/a.fq", "/data/b.fq"}));
  std::string name;
  ASSERT_TRUE(param("JOB", "NAME")->getLiteral(name));
  EXPECT_EQ(name, "my run");
  ParamObj qualifier;
  ASSERT_TRUE(param("JOB", "ADAPTERS")->getStringAndQual(qualifier));
  EXPECT_EQ(qualifier.getParamName(), "CUSTOM");
  std::string sequence;
  ASSERT_TRUE(qualifier.getUpStringGeneric(sequence));
  EXPECT_EQ(sequence, "ACGT");
  EXPECT_EQ(param("JOB", "FOLDER"), nullptr);

  std::vector<std::string> vars;
  ASSERT_TRUE(param("DESCRIPTIVES", "VARIABLES")->getStringList(vars));
  EXPECT_EQ(vars, (std::vector<std::string>{"GC", "qc_score"})) << "names as written, the switch apart";
  EXPECT_NE(param("DESCRIPTIVES", "SKEWNESS"), nullptr);
  EXPECT_EQ(param("DESCRIPTIVES", "KURTOSIS"), nullptr);

  int ntiles = 0;
  ASSERT_TRUE(param("FREQUENCIES", "NTILES")->getIntegerValue(ntiles));
  EXPECT_EQ(ntiles, 4);
  std::vector<double> percentiles;
  ASSERT_TRUE(param("FREQUENCIES", "PERCENTILES")->getNumberList(percentiles));
  EXPECT_EQ(percentiles, (std::vector<double>{5, 95.5}));
  EXPECT_NE(param("FREQUENCIES", "HISTOGRAM"), nullptr);
  EXPECT_NE(param("FREQUENCIES", "QUARTILES"), nullptr);

  std::string pearson;
  ASSERT_TRUE(param("CORRELATIONS", "PEARSON")->getStringGeneric(pearson));
  EXPECT_EQ(pearson, "FALSE");
  for (const char* sw : {"SPEARMAN", "KENDALL", "TWOTAIL", "ONETAIL"}) {
    EXPECT_NE(param("CORRELATIONS", sw), nullptr) << sw;
  }

  std::string dependent, method;
  ASSERT_TRUE(param("REGRESSION", "DEPENDENT")->getStringGeneric(dependent));
  EXPECT_EQ(dependent, "GC");
  ASSERT_TRUE(param("REGRESSION", "INDEPENDENT")->getStringList(vars));
  EXPECT_EQ(vars, (std::vector<std::string>{"Total_Sequences", "qc_score"}));
  ASSERT_TRUE(param("REGRESSION", "METHOD")->getStringGeneric(method));
  EXPECT_EQ(method, "STEPWISE");
  double ci = 0;
  ASSERT_TRUE(param("REGRESSION", "CI")->getNumberValue(ci));
  EXPECT_DOUBLE_EQ(ci, 95.0);
  EXPECT_NE(param("REGRESSION", "NORMALPROBABILITYPLOT"), nullptr);
  EXPECT_EQ(spec_.getSubComObj("PRINT"), nullptr);
}

TEST_F(Genostat, AdapterQualifiers) {
  struct Case {
    const char* text;
    const char* qualifier;
    bool hasValue;
    const char* value;
  } cases[] = {
      {"GENOSTAT /JOB ADAPTERS=NONE", "NONE", false, ""},
      {"GENOSTAT /JOB ADAPTERS=illumina", "ILLUMINA", false, ""},
      {"GENOSTAT /JOB ADAPTERS=Nextera", "NEXTERA", false, ""},
      {"GENOSTAT /JOB ADAPTERS=custom('acgt')", "CUSTOM", true, "ACGT"},
      {"GENOSTAT /JOB ADAPTERS=CUSTOM( AGATCGGAAGAGC )", "CUSTOM", true, "AGATCGGAAGAGC"},
      {"GENOSTAT /JOB ADAPTERS=CUSTOM('')", "CUSTOM", true, ""},
  };
  for (const auto& c : cases) {
    parseOk(c.text);
    ParamObj q;
    ASSERT_TRUE(param("JOB", "ADAPTERS")->getStringAndQual(q)) << c.text;
    EXPECT_EQ(q.getParamName(), c.qualifier) << c.text;
    std::string seq = "untouched";
    EXPECT_EQ(q.getUpStringGeneric(seq), c.hasValue) << c.text;
    EXPECT_EQ(seq, c.hasValue ? c.value : "untouched") << c.text;
  }
}

TEST_F(Genostat, PrintDeleteAndTheGeneratedJobLine) {
  std::string indent(40, ' ');
  parseOk("GENOSTAT\n" + indent + "/JOB FILE='' NAME='my_run_1' ADAPTERS=NONE\n" + indent +
          "/PRINT SAMPLE_COUNT=3 VARIABLE_COUNT=25 MESSAGE=100.");
  int sc = 0, vc = 0, msg = 0;
  ASSERT_TRUE(param("PRINT", "SAMPLE_COUNT")->getIntegerValue(sc));
  ASSERT_TRUE(param("PRINT", "VARIABLE_COUNT")->getIntegerValue(vc));
  ASSERT_TRUE(param("PRINT", "MESSAGE")->getIntegerValue(msg));
  EXPECT_EQ(sc, 3);
  EXPECT_EQ(vc, 25);
  EXPECT_EQ(msg, 100) << "the terminating period is not part of the number";
  std::vector<std::string> files;
  ASSERT_TRUE(param("JOB", "FILE")->getLiteralList(files));
  EXPECT_EQ(files, std::vector<std::string>{""}) << "FILE='' is one empty literal";

  parseOk("GENOSTAT\n" + indent + "/JOB FILE='' NAME='my_run_1' ADAPTERS=NONE\n" + indent +
          "/DELETE FILE='/tmp/zorv-x/1731721138.csv'.");
  std::string file;
  ASSERT_TRUE(param("DELETE", "FILE")->getLiteral(file));
  EXPECT_EQ(file, "/tmp/zorv-x/1731721138.csv");
  EXPECT_EQ(spec_.getSubComObj("PRINT"), nullptr) << "a new parse forgets the previous command";

  parseOk("GENOSTAT /PRINT SAMPLE_COUNT=-1 MESSAGE=+205");
  ASSERT_TRUE(param("PRINT", "SAMPLE_COUNT")->getIntegerValue(sc));
  ASSERT_TRUE(param("PRINT", "MESSAGE")->getIntegerValue(msg));
  EXPECT_EQ(sc, -1);
  EXPECT_EQ(msg, 205);
}

TEST_F(Genostat, OptionalPartsMayBeLeftOut) {
  parseOk("GENOSTAT");
  EXPECT_EQ(spec_.getSubComObj("JOB"), nullptr);
  parseOk("GENOSTAT /DESCRIPTIVES /CORRELATIONS SPEARMAN /PRINT");
  ASSERT_NE(spec_.getSubComObj("DESCRIPTIVES"), nullptr);
  EXPECT_EQ(param("DESCRIPTIVES", "VARIABLES"), nullptr);
  EXPECT_EQ(param("CORRELATIONS", "PEARSON"), nullptr);
  ASSERT_NE(spec_.getSubComObj("print"), nullptr) << "lookup ignores case";
  EXPECT_EQ(param("PRINT", "MESSAGE"), nullptr);
}

TEST_F(Genostat, NamesAndKeywordsIgnoreCaseListsTakeCommas) {
  parseOk("genostat /job folder='/Data/Run 1' name='x' /frequencies variables=gc,QC_Score "
          "percentiles=5,25 ,75 /correlations pearson=True");
  std::string folder;
  ASSERT_TRUE(param("JOB", "FOLDER")->getLiteral(folder));
  EXPECT_EQ(folder, "/Data/Run 1");
  std::vector<std::string> vars;
  ASSERT_TRUE(param("FREQUENCIES", "VARIABLES")->getStringList(vars));
  EXPECT_EQ(vars, (std::vector<std::string>{"gc", "QC_Score"}));
  std::vector<double> p;
  ASSERT_TRUE(param("FREQUENCIES", "PERCENTILES")->getNumberList(p));
  EXPECT_EQ(p, (std::vector<double>{5, 25, 75}));
  std::string pearson;
  ASSERT_TRUE(param("CORRELATIONS", "PEARSON")->getStringGeneric(pearson));
  EXPECT_EQ(pearson, "TRUE");
  ASSERT_TRUE(param("JOB", "FILE") == nullptr);
  parseOk("GENOSTAT /JOB FILE='a.fq','b.fq' , 'c.fq'");
  std::vector<std::string> files;
  ASSERT_TRUE(param("JOB", "FILE")->getLiteralList(files));
  EXPECT_EQ(files, (std::vector<std::string>{"a.fq", "b.fq", "c.fq"}));
}

TEST_F(Genostat, AVariableListEndsAtTheNextKeyword) {
  parseOk("GENOSTAT /CORRELATIONS VARIABLES=GC qc_score SPEARMAN PEARSON=TRUE");
  std::vector<std::string> vars;
  ASSERT_TRUE(param("CORRELATIONS", "VARIABLES")->getStringList(vars));
  EXPECT_EQ(vars, (std::vector<std::string>{"GC", "qc_score"}));
  EXPECT_NE(param("CORRELATIONS", "SPEARMAN"), nullptr);
  // The first word after '=' is always a name, even when it spells a keyword.
  parseOk("GENOSTAT /DESCRIPTIVES VARIABLES=kurtosis SKEWNESS");
  ASSERT_TRUE(param("DESCRIPTIVES", "VARIABLES")->getStringList(vars));
  EXPECT_EQ(vars, std::vector<std::string>{"kurtosis"});
  EXPECT_EQ(param("DESCRIPTIVES", "KURTOSIS"), nullptr);
}

struct Malformed {
  std::string text;
  std::string message;
};

class GenostatMalformed : public Genostat, public ::testing::WithParamInterface<Malformed> {};

TEST_P(GenostatMalformed, IsRefusedWithOnePositionedMessageAndNoResult) {
  // A successful parse first, so that the test also sees the failure wipe the result.
  parseOk("GENOSTAT /JOB NAME='before' /PRINT");
  auto outcome = parseCommand(descriptor_, spec_, GetParam().text);
  EXPECT_NE(outcome.result, 0);
  ASSERT_EQ(outcome.errors.size(), 1u);
  EXPECT_EQ(outcome.errors[0].command, "GENOSTAT");
  EXPECT_EQ(outcome.errors[0].text, GetParam().message);
  for (const char* sub : {"JOB", "DESCRIPTIVES", "FREQUENCIES", "CORRELATIONS", "REGRESSION", "PRINT", "DELETE"}) {
    EXPECT_EQ(spec_.getSubComObj(sub), nullptr) << sub;
  }
}

const std::string kIndent(40, ' ');

INSTANTIATE_TEST_SUITE_P(
    Errors, GenostatMalformed,
    ::testing::Values(
        // A keyword outside the allowed values.
        Malformed{"GENOSTAT /CORRELATIONS PEARSON=maybe",
                  "Line 1, column 32, at maybe: PEARSON accepts only TRUE, FALSE."},
        Malformed{"GENOSTAT /REGRESSION METHOD=sideways",
                  "Line 1, column 29, at sideways: METHOD accepts only ENTER, STEPWISE, BACKWARD, FORWARD."},
        Malformed{"GENOSTAT /JOB ADAPTERS=TRUSEQ",
                  "Line 1, column 24, at TRUSEQ: ADAPTERS accepts only NONE, ILLUMINA, NEXTERA, CUSTOM."},
        // Unknown subcommand or keyword.
        Malformed{"GENOSTAT /PLOT", "Line 1, column 11, at PLOT: unknown subcommand of GENOSTAT."},
        Malformed{"GENOSTAT /JOB TITLE='x'", "Line 1, column 15, at TITLE: unknown keyword of subcommand /JOB."},
        Malformed{"GENOSTAT /PRINT *", "Line 1, column 17, at *: a keyword of subcommand /PRINT is expected."},
        // Missing or unexpected '='.
        Malformed{"GENOSTAT /JOB NAME 'x'", "Line 1, column 20, at 'x': '=' is expected after NAME."},
        Malformed{"GENOSTAT /DESCRIPTIVES SKEWNESS=1", "Line 1, column 32, at =: SKEWNESS takes no value."},
        Malformed{"GENOSTAT /JOB=NAME", "Line 1, column 14, at =: unexpected '=' after subcommand /JOB."},
        // Unterminated quote.
        Malformed{"GENOSTAT /JOB NAME='my_run", "Line 1, column 20, at 'my_run: unterminated quoted literal."},
        // Forbidden repeats.
        Malformed{"GENOSTAT /PRINT /PRINT", "Line 1, column 18, at PRINT: subcommand /PRINT is given more than once."},
        Malformed{"GENOSTAT /JOB NAME='a' NAME='b'", "Line 1, column 24, at NAME: keyword NAME is given more than once."},
        // Values of the wrong kind.
        Malformed{"GENOSTAT /FREQUENCIES NTILES=4.5", "Line 1, column 30, at 4.5: an integer is expected for NTILES."},
        Malformed{"GENOSTAT /PRINT MESSAGE=99999999999",
                  "Line 1, column 25, at 99999999999: the integer for MESSAGE is out of range."},
        Malformed{"GENOSTAT /JOB NAME=", "Line 1, column 20, at end of command: a quoted literal is expected for NAME."},
        Malformed{"GENOSTAT /JOB FILE=3", "Line 1, column 20, at 3: a quoted literal is expected for FILE."},
        Malformed{"GENOSTAT /DESCRIPTIVES VARIABLES='GC'",
                  "Line 1, column 34, at 'GC': a name is expected for VARIABLES."},
        Malformed{"GENOSTAT /REGRESSION CI=high", "Line 1, column 25, at high: a number is expected for CI."},
        Malformed{"GENOSTAT /JOB ADAPTERS='x'", "Line 1, column 24, at 'x': a keyword is expected for ADAPTERS."},
        Malformed{"GENOSTAT /FREQUENCIES PERCENTILES=5, /PRINT",
                  "Line 1, column 38, at /: another item of PERCENTILES must follow ','."},
        // Qualifier values.
        Malformed{"GENOSTAT /JOB ADAPTERS=CUSTOM", "Line 1, column 30, at end of command: '(' is expected after CUSTOM."},
        Malformed{"GENOSTAT /JOB ADAPTERS=CUSTOM(acgt /PRINT",
                  "Line 1, column 36, at /: ')' is expected after the value of CUSTOM."},
        Malformed{"GENOSTAT /JOB ADAPTERS=CUSTOM()",
                  "Line 1, column 31, at ): a name or quoted literal is expected for CUSTOM."},
        Malformed{"GENOSTAT /JOB ADAPTERS=NONE(x)", "Line 1, column 28, at (: NONE takes no value."},
        // Command structure.
        Malformed{"GENOSTAT JOB NAME='x'", "Line 1, column 10, at JOB: a subcommand starting with '/' is expected."},
        Malformed{"GENOSTAT / 'x'", "Line 1, column 12, at 'x': a subcommand name is expected after '/'."},
        Malformed{"GENOSTATS /JOB", "Line 1, column 1, at GENOSTATS: the command must start with GENOSTAT."},
        Malformed{"", "Line 1, column 1, at end of command: the command must start with GENOSTAT."},
        Malformed{"GENOSTAT /PRINT.\n/DELETE", "Line 2, column 1, at /: text follows the end of the command."},
        Malformed{"GENOSTAT /JOB NAME='x'; /PRINT", "Line 1, column 23, at ;: a keyword of subcommand /JOB is expected."},
        Malformed{"GENOSTAT /PRINT MESSAGE=4abc", "Line 1, column 25, at 4abc: invalid number."},
        // Positions on the third line of a generated command.
        Malformed{"GENOSTAT\n" + kIndent + "/JOB FILE='' NAME='x' ADAPTERS=NONE\n" + kIndent +
                      "/PRINT SAMPLE_COUNT=3 VARIABLE_COUNT=2.5 MESSAGE=100.",
                  "Line 3, column 78, at 2.5: an integer is expected for VARIABLE_COUNT."}));

}  // namespace
