// The host's dataset registry as the data commands use it: imports make an active unnamed
// dataset, DATASET NAME moves a name, DATASET ACTIVATE picks a dataset, and the module sees the
// named ones (a job may not take their names).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/datasets.h"
#include "zorvhost/client.h"

namespace {

class Datasets : public ::testing::Test {
 protected:
  void SetUp() override { zorvhost::closeAllDatasets(); }
  void TearDown() override { zorvhost::closeAllDatasets(); }

  static zorvhost::DatasetData data(size_t cases, const std::string& firstVariable = "v") {
    zorvhost::DatasetData d;
    d.cases = cases;
    zorvhost::Variable v;
    v.name = firstVariable;
    v.numbers.assign(cases, 1.0);
    d.variables.push_back(v);
    return d;
  }

  static std::string active() {
    zorvhost::DatasetInfo info;
    if (!zorvhost::activeDataset(info)) return "<none>";
    return info.name.empty() ? "<unnamed>" : info.name;
  }

  // What the module sees.
  static std::vector<std::string> moduleView() {
    std::vector<SvrDMDataset*> list;
    ServerDataManager::GetInstance()->GetAllDatasets(list);
    std::vector<std::string> names;
    for (auto* d : list) {
      std::string n;
      d->GetHandle(n);
      names.push_back(n);
    }
    return names;
  }
};

TEST_F(Datasets, AnImportIsActiveAndUnnamedUntilNamed) {
  zorvhost::openDataset("pre");
  EXPECT_EQ(active(), "<none>");  // an opened dataset does not become active
  zorvhost::addImportedDataset(data(3));
  EXPECT_EQ(active(), "<unnamed>");
  EXPECT_EQ(moduleView(), std::vector<std::string>{"pre"});
  std::string error;
  ASSERT_TRUE(zorvhost::nameActiveDataset("my_run_1", error)) << error;
  EXPECT_EQ(moduleView(), (std::vector<std::string>{"pre", "my_run_1"}));
  zorvhost::DatasetInfo info;
  ASSERT_TRUE(zorvhost::activeDataset(info));
  EXPECT_EQ(info.cases, 3u);
  EXPECT_EQ(info.variables, 1u);
  EXPECT_TRUE(info.active);
}

TEST_F(Datasets, ANewImportReplacesAnUnnamedActiveDatasetButKeepsANamedOne) {
  std::string error;
  zorvhost::addImportedDataset(data(1));
  zorvhost::addImportedDataset(data(2));
  ASSERT_EQ(zorvhost::datasets().size(), 1u);
  EXPECT_EQ(zorvhost::datasets()[0].cases, 2u);
  ASSERT_TRUE(zorvhost::nameActiveDataset("a", error));
  zorvhost::addImportedDataset(data(5));
  auto all = zorvhost::datasets();
  ASSERT_EQ(all.size(), 2u);
  EXPECT_EQ(all[0].name, "a");
  EXPECT_FALSE(all[0].active);
  EXPECT_TRUE(all[1].active);
}

TEST_F(Datasets, ANameMovesToTheActiveDatasetAndItsFormerHolderGoes) {
  std::string error;
  zorvhost::addImportedDataset(data(1, "old"));
  ASSERT_TRUE(zorvhost::nameActiveDataset("Run", error));
  zorvhost::addImportedDataset(data(2, "new"));
  ASSERT_TRUE(zorvhost::nameActiveDataset("RUN", error));  // names compare ignoring case
  EXPECT_EQ(moduleView(), std::vector<std::string>{"RUN"});
  zorvhost::DatasetData d;
  ASSERT_TRUE(zorvhost::datasetData("run", d));
  EXPECT_EQ(d.variables[0].name, "new");
  EXPECT_EQ(zorvhost::datasets().size(), 1u);
  // Renaming the active dataset to its own name in another spelling keeps it.
  ASSERT_TRUE(zorvhost::nameActiveDataset("run", error));
  EXPECT_EQ(moduleView(), std::vector<std::string>{"run"});
}

TEST_F(Datasets, ActivateSwitchesDatasetsAndDropsAnUnnamedActiveOne) {
  std::string error;
  zorvhost::addImportedDataset(data(1));
  ASSERT_TRUE(zorvhost::nameActiveDataset("first", error));
  zorvhost::addImportedDataset(data(2));
  ASSERT_TRUE(zorvhost::activateDataset("FIRST", error)) << error;
  EXPECT_EQ(active(), "first");
  EXPECT_EQ(zorvhost::datasets().size(), 1u);  // the unnamed import could no longer be reached
  zorvhost::DatasetData d;
  ASSERT_TRUE(zorvhost::activeDatasetData(d));
  EXPECT_EQ(d.cases, 1u);
}

TEST_F(Datasets, RefusalsLeaveTheRegistryAsItWas) {
  std::string error;
  EXPECT_FALSE(zorvhost::nameActiveDataset("x", error));
  EXPECT_EQ(error, "there is no active dataset to name");
  zorvhost::addImportedDataset(data(1));
  EXPECT_FALSE(zorvhost::nameActiveDataset("", error));
  EXPECT_EQ(error, "a dataset name is needed");
  EXPECT_FALSE(zorvhost::nameActiveDataset("a b", error));
  EXPECT_EQ(error, "'a b' is not a dataset name: it holds a blank or a control character");
  EXPECT_FALSE(zorvhost::activateDataset("nobody", error));
  EXPECT_EQ(error, "no open dataset is named 'nobody'");
  EXPECT_FALSE(zorvhost::activateDataset("", error));
  EXPECT_EQ(active(), "<unnamed>");
  EXPECT_TRUE(moduleView().empty());
  zorvhost::DatasetData d;
  EXPECT_FALSE(zorvhost::datasetData("", d));  // an unnamed dataset is not found by name
}

TEST_F(Datasets, ClosingTheActiveDatasetLeavesNoneActive) {
  std::string error;
  zorvhost::addImportedDataset(data(1));
  ASSERT_TRUE(zorvhost::nameActiveDataset("x", error));
  EXPECT_TRUE(zorvhost::closeDataset("X"));
  EXPECT_EQ(active(), "<none>");
  zorvhost::DatasetData d;
  EXPECT_FALSE(zorvhost::activeDatasetData(d));
  EXPECT_TRUE(zorvhost::datasetNames().empty());
}

}  // namespace
