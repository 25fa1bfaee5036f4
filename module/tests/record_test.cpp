// The job record: defaults, the host's job metadata, option accessors.
#include <gtest/gtest.h>

#include "entry/GenoJobSettings.h"
#include "host/control.h"
#include "zorvhost/client.h"

namespace {

class RecordTest : public ::testing::Test {
 protected:
  void TearDown() override { zorvhost::setMetadataJson(""); }
};

TEST_F(RecordTest, DefaultsWithoutMetadata) {
  zorvhost::setMetadataJson("");
  GenoJobSettings r;
  EXPECT_TRUE(r.fastqFiles.empty());
  EXPECT_TRUE(r.fastqFolder.empty());
  EXPECT_EQ(r.adapterType, AdapterType::NONE);
  EXPECT_TRUE(r.customAdapterSequence.empty());
  EXPECT_EQ(r.descriptives, nullptr);
  EXPECT_EQ(r.frequencies, nullptr);
  EXPECT_EQ(r.correlations, nullptr);
  EXPECT_EQ(r.regression, nullptr);
  EXPECT_TRUE(r.jobName.empty());
  EXPECT_TRUE(r.listA.empty());
  EXPECT_TRUE(r.listB.empty());
  EXPECT_EQ(r.jobStatus.load(), JobStatus::Pending);
  EXPECT_TRUE(r.csvFilePath.empty());
  EXPECT_EQ(r.sampleCount, -1);
  EXPECT_EQ(r.variableCount, -1);
  EXPECT_EQ(r.messageText, "Default");
  EXPECT_EQ(r.workbookId, -1);
  EXPECT_EQ(r.paragraphId, -1);
  EXPECT_TRUE(r.metadataJson.empty());
  EXPECT_EQ(r.messageCode, 0);
  EXPECT_EQ(r.mode, JobMode::Submit);
}

TEST_F(RecordTest, StringIdsAreReadAndTheHostMetadataIsCleared) {
  const std::string json = R"({"job_metadata":{"workbook_id":"12","paragraph_id":"-3x"}})";
  zorvhost::setMetadataJson(json);
  GenoJobSettings r;
  EXPECT_EQ(r.workbookId, 12);
  EXPECT_EQ(r.paragraphId, -3);  // atoi stops at the first non-digit
  EXPECT_EQ(r.metadataJson, json);
  EXPECT_EQ(GetMetaDataJson(), "");  // used for one command only

  GenoJobSettings next;  // the following command sees no metadata
  EXPECT_EQ(next.workbookId, -1);
  EXPECT_TRUE(next.metadataJson.empty());
}

TEST_F(RecordTest, NonStringIdsAndBrokenJsonLeaveDefaultsButStillClear) {
  struct Case {
    const char* json;
    int32_t workbook;
    int32_t paragraph;
  };
  const Case cases[] = {
      {R"({"job_metadata":{"workbook_id":7,"paragraph_id":"8"}})", -1, 8},
      {R"({"job_metadata":{"workbook_id":null,"paragraph_id":true}})", -1, -1},
      {R"({"job_metadata":"{\"workbook_id\":\"1\"}"})", -1, -1},
      {R"({"workbook_id":"1","paragraph_id":"2"})", -1, -1},
      {R"([{"job_metadata":{"workbook_id":"1"}}])", -1, -1},
      {R"({"job_metadata":{"workbook_id":"1")", -1, -1},
      {"not json", -1, -1},
      {R"({"job_metadata":{"workbook_id":"abc"}})", 0, -1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.json);
    zorvhost::setMetadataJson(c.json);
    GenoJobSettings r;
    EXPECT_EQ(r.workbookId, c.workbook);
    EXPECT_EQ(r.paragraphId, c.paragraph);
    EXPECT_EQ(r.metadataJson, c.json);
    EXPECT_EQ(GetMetaDataJson(), "");
  }
}

TEST_F(RecordTest, OptionAccessorsCreateOnlyOnRequestAndKeepTheObject) {
  GenoJobSettings r;
  EXPECT_EQ(r.descriptivesOptions(false), nullptr);
  EXPECT_EQ(r.frequenciesOptions(false), nullptr);
  EXPECT_EQ(r.correlationsOptions(false), nullptr);
  EXPECT_EQ(r.regressionOptions(false), nullptr);

  DescriptivesOptions* d = r.descriptivesOptions(true);
  ASSERT_NE(d, nullptr);
  d->skewness = true;
  EXPECT_EQ(r.descriptivesOptions(true), d);
  EXPECT_EQ(r.descriptivesOptions(false), d);
  EXPECT_TRUE(r.descriptivesOptions(false)->skewness);

  FrequenciesOptions* f = r.frequenciesOptions(true);
  ASSERT_NE(f, nullptr);
  EXPECT_EQ(f->ntiles, 0);
  EXPECT_TRUE(f->percentiles.empty());
  EXPECT_FALSE(f->histogram);
  EXPECT_FALSE(f->quartiles);
  EXPECT_EQ(r.frequenciesOptions(false), f);

  CorrelationsOptions* c = r.correlationsOptions(true);
  ASSERT_NE(c, nullptr);
  EXPECT_TRUE(c->pearson);  // Pearson is requested unless switched off
  EXPECT_FALSE(c->spearman || c->kendall || c->twoTail || c->oneTail);

  RegressionOptions* g = r.regressionOptions(true);
  ASSERT_NE(g, nullptr);
  EXPECT_EQ(g->method, RegressionMethod::ENTER);
  EXPECT_TRUE(g->confidenceInterval.empty());
  EXPECT_FALSE(g->reservedFlag || g->normalProbabilityPlot);
  EXPECT_EQ(r.regressionOptions(false), g);
}

TEST_F(RecordTest, CustomSequenceSetsTheAdapterType) {
  GenoJobSettings r;
  r.adapterType = AdapterType::NEXTERA;
  r.setCustomAdapterSequence("ACGT");
  EXPECT_EQ(r.customAdapterSequence, "ACGT");
  EXPECT_EQ(r.adapterType, AdapterType::CUSTOM);
  r.setCustomAdapterSequence("");  // even an empty sequence means CUSTOM
  EXPECT_EQ(r.adapterType, AdapterType::CUSTOM);
}

}  // namespace
