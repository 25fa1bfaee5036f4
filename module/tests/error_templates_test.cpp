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

TEST_F(ErrorDetailsTest, ReadsPrintsAndRemovesTheFileBesideTheResult) {
  const std::string details = dir_.write("1731721138.error", R"({"FILE_PATH":"/data/x.fq","N":3})");
  testing::internal::CaptureStdout();
  rapidjson::Document doc = Peer::readErrorDetails(*manager_, dir_.file("1731721138.csv"));
  const std::string printed = testing::internal::GetCapturedStdout();
  ASSERT_TRUE(doc.IsObject());
  EXPECT_STREQ(doc["FILE_PATH"].GetString(), "/data/x.fq");
  EXPECT_EQ(printed, std::string("\n  file :") + R"({"FILE_PATH":"/data/x.fq","N":3})");
  EXPECT_FALSE(exists(details));
  EXPECT_EQ(Peer::replacePlaceholders(tpl(2), doc), "File not found:/data/x.fq");
}

TEST_F(ErrorDetailsTest, MissingFileGivesAnEmptyDocumentAndANote) {
  testing::internal::CaptureStdout();
  rapidjson::Document doc = Peer::readErrorDetails(*manager_, dir_.file("none.csv"));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "\n Error file not found");
  EXPECT_FALSE(doc.IsObject());
  EXPECT_EQ(Peer::replacePlaceholders(tpl(1), doc), "General error:{{ERROR_MESSAGE}}");
}

TEST_F(ErrorDetailsTest, NameIsCutAtTheLastDotOfTheWholePath) {
  std::filesystem::create_directory(dir_.file("run.2"));
  const std::string details = dir_.write("run.error", R"({"ERROR_MESSAGE":"boom"})");
  testing::internal::CaptureStdout();
  rapidjson::Document doc = Peer::readErrorDetails(*manager_, dir_.file("run.2/out"));
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(Peer::replacePlaceholders(tpl(1), doc), "General error:boom");
  EXPECT_FALSE(exists(details));
}

TEST_F(ErrorDetailsTest, PathWithoutDotGetsTheSuffixAppended) {
  // The scratch folder's own name holds no dot; a temporary folder with one would cut there.
  if (dir_.path().find('.') != std::string::npos) GTEST_SKIP() << "temporary folder has a dot: " << dir_.path();
  const std::string details = dir_.write("result.error", R"({"OUTPUT_PATH":"o"})");
  testing::internal::CaptureStdout();
  rapidjson::Document doc = Peer::readErrorDetails(*manager_, dir_.file("result"));
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(Peer::replacePlaceholders(tpl(9), doc), "Error writing output too");
  EXPECT_FALSE(exists(details));
}

TEST_F(ErrorDetailsTest, MalformedFileIsStillConsumed) {
  const std::string details = dir_.write("bad.error", "{not json");
  testing::internal::CaptureStdout();
  rapidjson::Document doc = Peer::readErrorDetails(*manager_, dir_.file("bad.csv"));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "\n  file :{not json");
  EXPECT_FALSE(doc.IsObject());
  EXPECT_FALSE(exists(details));
}

}  // namespace
}  // namespace mt
