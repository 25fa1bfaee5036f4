// zorv's command line: every option, and every mistake refused with its message.
#include "options.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <vector>

namespace zorv {
namespace {

struct Result {
  bool ok;
  Options options;
  std::string error;
};

Result parse(std::initializer_list<const char*> args) {
  std::vector<const char*> argv{"zorv"};
  argv.insert(argv.end(), args.begin(), args.end());
  Result r;
  r.ok = parseOptions(static_cast<int>(argv.size()), argv.data(), r.options, r.error);
  return r;
}

TEST(Options, DefaultsReadStandardInput) {
  auto r = parse({});
  ASSERT_TRUE(r.ok);
  EXPECT_TRUE(r.options.sources.empty());
  EXPECT_FALSE(r.options.batch);
  EXPECT_EQ(r.options.eventsPath, "");
  EXPECT_EQ(r.options.language, "en");
  EXPECT_FALSE(r.options.haveMetadata);
  EXPECT_TRUE(r.options.waitForJobs);
}

TEST(Options, SourcesKeepTheirCommandLineOrder) {
  auto r = parse({"a.sps", "-e", "GENOSTAT /PRINT.", "-", "--", "-e", "--batch"});
  ASSERT_TRUE(r.ok) << r.error;
  ASSERT_EQ(r.options.sources.size(), 5u);
  EXPECT_EQ(r.options.sources[0].kind, Source::Kind::File);
  EXPECT_EQ(r.options.sources[0].value, "a.sps");
  EXPECT_EQ(r.options.sources[1].kind, Source::Kind::Text);
  EXPECT_EQ(r.options.sources[1].value, "GENOSTAT /PRINT.");
  EXPECT_EQ(r.options.sources[2].kind, Source::Kind::StandardInput);
  // After "--" everything is a file name.
  EXPECT_EQ(r.options.sources[3].kind, Source::Kind::File);
  EXPECT_EQ(r.options.sources[3].value, "-e");
  EXPECT_EQ(r.options.sources[4].value, "--batch");
  EXPECT_FALSE(r.options.batch);
}

TEST(Options, EveryOptionWithSeparateOrInlineValue) {
  auto r = parse({"--batch", "--events", "-", "--install-dir=/opt/z", "--temp-dir", "/tmp/t",
                  "--metadata", R"({"workbookId":1,"paragraphId":2})", "--dataset", "DATA",
                  "--dataset=other", "--lang", "de", "--no-wait"});
  ASSERT_TRUE(r.ok) << r.error;
  EXPECT_TRUE(r.options.batch);
  EXPECT_EQ(r.options.eventsPath, "-");
  EXPECT_EQ(r.options.installDir, "/opt/z");
  EXPECT_EQ(r.options.tempDir, "/tmp/t");
  EXPECT_TRUE(r.options.haveMetadata);
  EXPECT_EQ(r.options.metadataJson, R"({"workbookId":1,"paragraphId":2})");
  EXPECT_EQ(r.options.datasets, (std::vector<std::string>{"DATA", "other"}));
  EXPECT_EQ(r.options.language, "de");
  EXPECT_FALSE(r.options.waitForJobs);
  EXPECT_TRUE(r.options.sources.empty());
  // A value may itself look like an option.
  r = parse({"-e", "--batch"});
  ASSERT_TRUE(r.ok);
  EXPECT_EQ(r.options.sources.at(0).value, "--batch");
  EXPECT_FALSE(r.options.batch);
}

TEST(Options, OutputNamesTheSessionPage) {
  auto r = parse({"--output", "s.html", "-e", "x."});
  ASSERT_TRUE(r.ok);
  EXPECT_EQ(r.options.outputPath, "s.html");
  EXPECT_EQ(parse({"--output=t.html"}).options.outputPath, "t.html");
}

TEST(Options, HelpIsRecognised) {
  EXPECT_TRUE(parse({"--help"}).options.help);
  EXPECT_TRUE(parse({"-h"}).options.help);
  EXPECT_NE(usageText().find("--events FILE|-"), std::string::npos);
}

TEST(Options, MistakesAreRefusedWithAClearMessage) {
  struct Case {
    std::vector<const char*> args;
    std::string error;
  };
  const std::vector<Case> cases = {
      {{"--verbose"}, "unknown option '--verbose' (try --help)"},
      {{"-x"}, "unknown option '-x' (try --help)"},
      {{"--batch=yes"}, "option '--batch' takes no value"},
      {{"-e"}, "option '-e' needs a value"},
      {{"--events"}, "option '--events' needs a value"},
      {{"--events", "a", "--events", "b"}, "option '--events' given twice"},
      {{"--events="}, "option '--events' needs a file name or '-'"},
      {{"--install-dir", ""}, "option '--install-dir' needs a folder"},
      {{"--temp-dir="}, "option '--temp-dir' needs a folder"},
      {{"--metadata", "{\"workbookId\":"},
       "--metadata is not valid JSON: Invalid value. (at offset 14)"},
      {{"--metadata", "[1,2]"}, "--metadata must be a JSON object"},
      {{"--dataset", ""}, "option '--dataset' needs a name"},
      {{"--output="}, "option '--output' needs a file name"},
      {{"--output", "a.html", "--output=b.html"}, "option '--output' given twice"},
      {{"--lang", "../etc"}, "--lang '../etc' is not a language code (letters, digits, '-', '_')"},
      {{"--lang", ""}, "--lang '' is not a language code (letters, digits, '-', '_')"},
  };
  for (const auto& c : cases) {
    std::vector<const char*> argv{"zorv"};
    argv.insert(argv.end(), c.args.begin(), c.args.end());
    Options options;
    std::string error;
    EXPECT_FALSE(parseOptions(static_cast<int>(argv.size()), argv.data(), options, error))
        << c.error;
    EXPECT_EQ(error, c.error);
  }
}

}  // namespace
}  // namespace zorv
