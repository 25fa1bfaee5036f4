// The record of one GENOSTAT command and, for a submitted command, of one job.
//
// Ownership: the entry owns a record until GenoStatAlgoManager::addJobToQueue, then the manager,
// then launchPythonProcess. A record is only ever touched by one thread at a time, except
// `jobStatus`, which cancellation writes under the manager's mutex while the worker reads it.
#pragma once

#include <atomic>
#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <vector>

// Scoped and mixed-case: windows.h defines DELETE as a macro.
enum class JobMode : uint32_t { Submit = 0, Print = 1, Delete = 2 };
enum class AdapterType : uint32_t { NONE = 0, ILLUMINA = 1, NEXTERA = 2, CUSTOM = 3 };
enum class JobStatus : uint32_t { Pending = 0, Running = 1, Completed = 2, Cancelled = 3, Failed = 4 };
enum class RegressionMethod : uint32_t { ENTER = 0, STEPWISE = 1, BACKWARD = 2, FORWARD = 3 };

struct DescriptivesOptions {
  std::vector<std::string> variables;
  bool skewness = false;
  bool kurtosis = false;
};

struct FrequenciesOptions {
  std::vector<std::string> variables;
  int32_t ntiles = 0;  // 0: none requested
  std::vector<double> percentiles;
  bool histogram = false;
  bool quartiles = false;
};

struct CorrelationsOptions {
  std::vector<std::string> variables;
  bool pearson = true;
  bool spearman = false;
  bool kendall = false;
  bool twoTail = false;
  bool oneTail = false;
};

struct RegressionOptions {
  std::string dependent;
  std::vector<std::string> independent;
  RegressionMethod method = RegressionMethod::ENTER;
  std::string confidenceInterval;  // the CI number written with "%f"
  bool reservedFlag = false;       // nothing sets or reads it
  bool normalProbabilityPlot = false;
};

struct GenoJobSettings {
  // Takes the host's job metadata (GetMetaDataJson) and clears it in the host once read.
  GenoJobSettings();
  ~GenoJobSettings();
  GenoJobSettings(const GenoJobSettings&) = delete;
  GenoJobSettings& operator=(const GenoJobSettings&) = delete;

  // Option accessors: the existing options object; when there is none, null if `create` is false,
  // else a new one with its defaults, which the record then owns.
  DescriptivesOptions* descriptivesOptions(bool create);
  FrequenciesOptions* frequenciesOptions(bool create);
  CorrelationsOptions* correlationsOptions(bool create);
  RegressionOptions* regressionOptions(bool create);

  // Also sets `adapterType` to CUSTOM.
  void setCustomAdapterSequence(const std::string& sequence);

  std::vector<std::string> fastqFiles;
  std::string fastqFolder;
  // `enum` spelled out: <windows.h> declares an enumerator AdapterType at global scope, which hides
  // the type's plain name in every file that includes both.
  enum AdapterType adapterType = AdapterType::NONE;
  std::string customAdapterSequence;
  std::unique_ptr<DescriptivesOptions> descriptives;
  std::unique_ptr<FrequenciesOptions> frequencies;
  std::unique_ptr<CorrelationsOptions> correlations;
  std::unique_ptr<RegressionOptions> regression;
  std::string jobName;
  std::vector<std::string> listA;
  std::vector<std::string> listB;
  // Written by cancellation (client thread, under the manager's mutex) and read by the worker
  // without it.
  std::atomic<JobStatus> jobStatus{JobStatus::Pending};
  std::string csvFilePath;
  int32_t sampleCount = -1;
  int32_t variableCount = -1;
  std::string messageText = "Default";
  int32_t workbookId = -1;
  int32_t paragraphId = -1;
  std::string metadataJson;
  int32_t messageCode = 0;
  JobMode mode = JobMode::Submit;
};
