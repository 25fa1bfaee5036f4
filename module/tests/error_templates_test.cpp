// Texts of a failed analysis and the error-details file.
#include <gtest/gtest.h>

#include "module_test_support.h"

namespace mt {
namespace {

rapidjson::Document parse(const char* json) {
  rapidjson::Document d;
  d.Parse(json);
  return d;
}

class ErrorTemplatesTest : public ::testing::Test {
 protected:
  std::string tpl(int32_t code) { return Peer::getErrorMessageTemplate(*manager_, code); }
  std::unique_ptr<GenoStatAlgoManager> manager_ = Peer::make();  // no string table: keys come back
};

// Codes 1 to 14 and 255 are pinned through real failed runs in failure_test.cpp.
TEST_F(ErrorTemplatesTest, CodeZeroHasNoTextCodesOutsideTheTableAreUnknown) {
  EXPECT_EQ(tpl(0), "");
  EXPECT_EQ(tpl(4), "Invalid configuration");
  for (int32_t code : {14, 15, 1000, -1, -200, INT32_MIN, INT32_MAX}) {
    EXPECT_EQ(tpl(code), "Unknown error occurred") << code;
  }
  // Without a string table the key comes back.
  EXPECT_EQ(Peer::getTranslatedErrorMessage(*manager_, "File not found:"), "File not found:");
}

TEST(ReplacePlaceholdersTest, FillsStringMembersOnly) {
  EXPECT_EQ(Peer::replacePlaceholders("File not found:{{FILE_PATH}}", parse(R"({"FILE_PATH":"a.fq"})")),
            "File not found:a.fq");
  EXPECT_EQ(Peer::replacePlaceholders("{{A}}/{{B}}/{{A}}/{{C}}", parse(R"({"A":"x","B":7,"C":null})")),
            "x/{{B}}/x/{{C}}");
  EXPECT_EQ(Peer::replacePlaceholders("{{A}}", parse(R"({"A":"{{A}}{{A}}"})")), "{{A}}{{A}}");
  EXPECT_EQ(Peer::replacePlaceholders("{{A}}{{B}}", parse(R"({"A":"{{B}}","B":"b"})")), "bb");
  EXPECT_EQ(Peer::replacePlaceholders("{{A}}", parse(R"({"A":""})")), "");
}

TEST(ReplacePlaceholdersTest, NonObjectsLeaveTheText) {
  EXPECT_EQ(Peer::replacePlaceholders("{{A}}", rapidjson::Document()), "{{A}}");
  EXPECT_EQ(Peer::replacePlaceholders("{{A}}", parse(R"(["A"])")), "{{A}}");
  EXPECT_EQ(Peer::replacePlaceholders("{{A}}", parse("{broken")), "{{A}}");
}

class ErrorDetailsTest : public ErrorTemplatesTest {
 protected:
  ScratchFolder dir_;
};

TEST_F(ErrorDetailsTest, FileBesideTheResultIsReadPrintedAndRemovedWhateverItHolds) {
  std::filesystem::create_directory(dir_.file("run.2"));
  struct Case {
    const char* detailsFile;  // written beside the result, or null for none
    const char* content;
    const char* result;       // the result path the details are looked up for
    int32_t exitCode;         // whose template the details fill
    const char* filled;
    const char* printed;      // null: not checked
  };
  const Case cases[] = {
      {"1731721138.error", R"({"FILE_PATH":"/data/x.fq","N":3})", "1731721138.csv", 2, "File not found:/data/x.fq",
       "\n  file :{\"FILE_PATH\":\"/data/x.fq\",\"N\":3}"},
      {nullptr, "", "none.csv", 1, "General error:{{ERROR_MESSAGE}}", "\n Error file not found"},
      {"bad.error", "{not json", "bad.csv", 1, "General error:{{ERROR_MESSAGE}}", "\n  file :{not json"},
      // The name is cut at the last dot of the whole path, even one in a folder's name.
      {"run.error", R"({"ERROR_MESSAGE":"boom"})", "run.2/out", 1, "General error:boom", nullptr},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.result);
    const std::string details = c.detailsFile != nullptr ? dir_.write(c.detailsFile, c.content) : "";
    testing::internal::CaptureStdout();
    const rapidjson::Document doc = Peer::readErrorDetails(*manager_, dir_.file(c.result));
    const std::string printed = testing::internal::GetCapturedStdout();
    if (c.printed != nullptr) {
      EXPECT_EQ(printed, c.printed);
    }
    EXPECT_EQ(Peer::replacePlaceholders(tpl(c.exitCode), doc), c.filled);
    if (!details.empty()) {
      EXPECT_FALSE(exists(details)) << "consumed, whatever it held";
    }
  }
  // A result path without a dot gets the suffix appended (the scratch folder's name has none).
  if (dir_.path().find('.') == std::string::npos) {
    const std::string details = dir_.write("result.error", R"({"OUTPUT_PATH":"o"})");
    testing::internal::CaptureStdout();
    const rapidjson::Document doc = Peer::readErrorDetails(*manager_, dir_.file("result"));
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(Peer::replacePlaceholders(tpl(9), doc), "Error writing output too");
    EXPECT_FALSE(exists(details));
  }
}

}  // namespace
}  // namespace mt
