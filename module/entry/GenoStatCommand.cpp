#include "entry/GenoStatCommand.h"

#include <cstdio>
#include <initializer_list>
#include <vector>

#include "entry/GenomicParserException.h"
#include "entry/Texts.h"
#include "host/datasets.h"
#include "host/messages.h"
#include "host/platform.h"
#include "jobs/GenoStatAlgoManager.h"
#include "platform/platform.h"

using UPSpecTypes::BracketOptions;
using UPSpecTypes::ParamSpec;

namespace genostat::entry {

namespace {

constexpr BracketOptions kNoBrackets = UPSpecTypes::NoBrackets;
constexpr std::size_t kMaxJobNameBytes = 255;

SubComDescriptor subcommand(const char* name) {
  return SubComDescriptor(name, UPSpecTypes::SubComStandard, false, false);
}

ParamDescriptor param(const char* name, ParamSpec spec, bool flag1, bool flag2) {
  return ParamDescriptor(name, spec, flag1, flag2, kNoBrackets);
}

// Keywords that stand alone and are read by their presence only.
void addSwitches(SubComDescriptor& sub, std::initializer_list<const char*> names) {
  for (const char* name : names) sub.addParamDesc(param(name, UPSpecTypes::ParamSwitch, false, false));
}

SubComObj* findSubcommand(const CommandSpec& spec, const char* name, GenoJobSettings* settings) {
  return settings ? spec.getSubComObj(name) : nullptr;
}

bool present(const SubComObj& sub, const char* name) { return sub.getParamObj(name) != nullptr; }

int integerOrZero(const SubComObj& sub, const char* name) {
  int value = 0;
  const ParamObj* p = sub.getParamObj(name);
  if (!p || !p->getIntegerValue(value)) return 0;
  return value;
}

void readStringList(const SubComObj& sub, const char* name, std::vector<std::string>& target) {
  const ParamObj* p = sub.getParamObj(name);
  std::vector<std::string> values;
  if (p && p->getStringList(values)) target = std::move(values);
}

bool isReservedWord(const std::string& name) {
  // Words of the host's command language that a dataset name cannot be; exact case only.
  for (const char* word : {"*", "ALL", "LT", "WITH"}) {
    if (name == word) return true;
  }
  return false;
}

// The host language's word characters: a dataset name is one word. Bytes from 0x80 on are letters,
// so names in any script pass whole.
bool wordStart(unsigned char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || c == '@' || c == '#' || c == '$' ||
         c >= 0x80;
}
bool wordChar(unsigned char c) { return wordStart(c) || (c >= '0' && c <= '9') || c == '.'; }

}  // namespace

// A deviation from the job subcommand's rules, for the user's sake: a name is refused up front
// when the post-job syntax could not carry it (as a quoted literal in the GENOSTAT commands and as
// a dataset name in DATASET NAME, blanks become '_'), instead of the job failing after its whole
// analysis has run.
std::string datasetNameFault(const std::string& name) {
  std::string carried = name;
  for (char& c : carried) c = c == ' ' ? '_' : c;
  std::string why;
  if (carried.empty()) {
    why = "it is empty";
  } else if (name.find('\'') != std::string::npos) {
    why = "it holds an apostrophe, which would end the quoted name in the job's commands";
  } else if (!wordStart(static_cast<unsigned char>(carried[0]))) {
    why = std::string("it starts with '") + carried[0] + "'; a dataset name starts with a letter or one of _ @ # $";
  } else if (carried.back() == '.') {
    why = "it ends in a period, which would end the job's DATASET NAME command";
  } else {
    for (unsigned char c : carried) {
      if (!wordChar(c)) {
        why = std::string("it holds '") + static_cast<char>(c) +
              "'; a dataset name holds only letters, digits and _ . @ # $ (blanks become _)";
        break;
      }
    }
  }
  if (why.empty()) return std::string();
  std::string fixed;
  for (unsigned char c : carried) {
    if (c != '\'') fixed += wordChar(c) ? static_cast<char>(c) : '_';
  }
  while (!fixed.empty() && fixed.back() == '.') fixed.pop_back();
  if (fixed.empty() || !wordStart(static_cast<unsigned char>(fixed[0]))) fixed = "run_" + fixed;
  return "'" + name + "' cannot name the job's dataset: " + why + ". NAME='" + fixed + "' would work";
}

namespace {

// Every path must open and hold at least one byte; the first failure ends the command.
void checkInputFiles(const std::vector<std::string>& paths) {
  for (const std::string& path : paths) {
    switch (genostat::platform::checkInputFile(path)) {
      case genostat::platform::InputFileCheck::CannotOpen:
        throw GenomicParserException(GenomicParserException::kFileNotFound, path);
      case genostat::platform::InputFileCheck::EmptyOrNoSize:
        throw GenomicParserException(GenomicParserException::kErrorProcessingFastq, path);
      case genostat::platform::InputFileCheck::Readable:
        break;
    }
  }
}

}  // namespace

void buildGrammar(CommandDescriptor& descriptor) {
  using namespace UPSpecTypes;

  SubComDescriptor job = subcommand("JOB");
  job.addParamDesc(param("NAME", ParamLiteral, false, true));
  job.addParamDesc(param("FILE", ParamLiteralList, false, true));
  job.addParamDesc(param("FOLDER", ParamLiteral, false, true));
  ParamDescriptor adapters = param("ADAPTERS", ParamKeywordQualif, true, true);
  adapters.addQualifDesc("NONE");
  adapters.addQualifDesc("ILLUMINA");
  adapters.addQualifDesc("NEXTERA");
  adapters.addQualifDesc(param("CUSTOM", ParamQualifierValue, false, true));
  job.addParamDesc(adapters);
  descriptor.addSubComDesc(job);

  SubComDescriptor descriptives = subcommand("DESCRIPTIVES");
  descriptives.addParamDesc(param("VARIABLES", ParamNameList, true, true));
  addSwitches(descriptives, {"SKEWNESS", "KURTOSIS"});
  descriptor.addSubComDesc(descriptives);

  SubComDescriptor frequencies = subcommand("FREQUENCIES");
  frequencies.addParamDesc(param("VARIABLES", ParamNameList, true, true));
  frequencies.addParamDesc(param("NTILES", ParamInteger, false, true));
  frequencies.addParamDesc(param("PERCENTILES", ParamNumberList, false, true));
  addSwitches(frequencies, {"HISTOGRAM", "QUARTILES"});
  descriptor.addSubComDesc(frequencies);

  SubComDescriptor correlations = subcommand("CORRELATIONS");
  correlations.addParamDesc(param("VARIABLES", ParamNameList, true, true));
  ParamDescriptor pearson = param("PEARSON", ParamNameList, true, true);
  pearson.addStringValue("TRUE");
  pearson.addStringValue("FALSE");
  correlations.addParamDesc(pearson);
  addSwitches(correlations, {"SPEARMAN", "KENDALL", "TWOTAIL", "ONETAIL"});
  descriptor.addSubComDesc(correlations);

  SubComDescriptor regression = subcommand("REGRESSION");
  regression.addParamDesc(param("DEPENDENT", ParamNameList, true, true));
  regression.addParamDesc(param("INDEPENDENT", ParamNameList, true, true));
  addSwitches(regression, {"NORMALPROBABILITYPLOT"});
  ParamDescriptor method = param("METHOD", ParamNameList, true, true);
  for (const char* m : {"ENTER", "STEPWISE", "BACKWARD", "FORWARD"}) method.addStringValue(m);
  regression.addParamDesc(method);
  regression.addParamDesc(param("CI", ParamNumber, false, true));
  descriptor.addSubComDesc(regression);

  SubComDescriptor print = subcommand("PRINT");
  print.addParamDesc(param("SAMPLE_COUNT", ParamInteger, false, true));
  print.addParamDesc(param("VARIABLE_COUNT", ParamInteger, false, true));
  print.addParamDesc(param("MESSAGE", ParamInteger, false, true));
  descriptor.addSubComDesc(print);

  SubComDescriptor del = subcommand("DELETE");
  del.addParamDesc(param("FILE", ParamLiteral, false, true));
  descriptor.addSubComDesc(del);
}

AdapterType adapterTypeFromKeyword(const std::string& keyword) {
  if (keyword == "ILLUMINA") return AdapterType::ILLUMINA;
  if (keyword == "NEXTERA") return AdapterType::NEXTERA;
  if (keyword == "CUSTOM") return AdapterType::CUSTOM;
  return AdapterType::NONE;
}

RegressionMethod regressionMethodFromKeyword(const std::string& keyword) {
  if (keyword == "STEPWISE") return RegressionMethod::STEPWISE;
  if (keyword == "BACKWARD") return RegressionMethod::BACKWARD;
  if (keyword == "FORWARD") return RegressionMethod::FORWARD;
  return RegressionMethod::ENTER;
}

std::string formatConfidenceInterval(double value) {
  // "%f" of the largest double is 316 characters; 400 leaves room for the sign and decimals.
  char buffer[400];
  std::snprintf(buffer, sizeof buffer, "%f", value);
  return buffer;
}

void runPreChecks() {
  if (const ZorvAdapter* adapter = GetAdapter()) {
    if (adapter->isInteractiveClient() == 0) {
      throw GenomicParserException(GenomicParserException::kCommandLineMode);
    }
  }
  // Asking must not create the manager: without one, nothing is queued.
  if (GenoStatAlgoManager* manager = GenoStatAlgoManager::existingInstance()) {
    if (manager->isQueueFull()) {
      throw GenomicParserException(GenomicParserException::kQueueThresholdExceeded,
                                   std::to_string(GenoStatAlgoManager::kQueueLimit));
    }
  }
}

void interpretPrint(const CommandSpec& spec, GenoJobSettings* settings) {
  const SubComObj* sub = findSubcommand(spec, "PRINT", settings);
  if (!sub) return;
  settings->sampleCount = integerOrZero(*sub, "SAMPLE_COUNT");
  settings->variableCount = integerOrZero(*sub, "VARIABLE_COUNT");
  settings->messageCode = integerOrZero(*sub, "MESSAGE");
  settings->mode = JobMode::Print;
}

void interpretDelete(const CommandSpec& spec, GenoJobSettings* settings) {
  const SubComObj* sub = findSubcommand(spec, "DELETE", settings);
  if (!sub) return;
  std::string file;
  if (const ParamObj* p = sub->getParamObj("FILE"); p && p->getLiteral(file)) settings->csvFilePath = file;
  settings->mode = JobMode::Delete;
}

void interpretJob(const CommandSpec& spec, GenoJobSettings* settings) {
  const SubComObj* sub = findSubcommand(spec, "JOB", settings);
  if (!sub) return;
  const bool submit = settings->mode == JobMode::Submit;

  // Input files and folder matter only to a job that will run; PRINT and DELETE name a finished one.
  if (submit) {
    std::vector<std::string> files;
    if (const ParamObj* p = sub->getParamObj("FILE"); p && p->getLiteralList(files)) {
      checkInputFiles(files);
      settings->fastqFiles = std::move(files);
    }
    std::string folder;
    if (const ParamObj* p = sub->getParamObj("FOLDER"); p && p->getLiteral(folder)) {
      settings->fastqFolder = folder;
    }
  }

  if (const ParamObj* p = sub->getParamObj("ADAPTERS")) {
    ParamObj qualifier;
    if (p->getStringAndQual(qualifier)) {
      settings->adapterType = adapterTypeFromKeyword(qualifier.getParamName());
      std::string sequence;
      if (settings->adapterType == AdapterType::CUSTOM && qualifier.getUpStringGeneric(sequence)) {
        settings->setCustomAdapterSequence(sequence);
      }
    }
  }

  const ParamObj* nameParam = sub->getParamObj("NAME");
  std::string name;
  const bool named = nameParam != nullptr && nameParam->getLiteral(name);
  // A job without a name would fail only after its analysis, when its dataset cannot be named:
  // it gets an automatic one, which its queued message tells the user.
  if (name == "AUTO" || (!named && submit)) {
    try {
      settings->jobName = GenoStatAlgoManager::generateUniqueJobName();
    } catch (const GenomicParserException& e) {
      throw GenomicParserException(GenomicParserException::kAutomaticNameError, e.what());
    }
    return;
  }
  if (!named) return;
  if (submit) checkJobName(name);
  settings->jobName = name;
}

void checkLaunchFits(const GenoJobSettings* settings) {
  if (settings == nullptr || settings->mode != JobMode::Submit) return;
  const std::string tooLong = GenoStatAlgoManager::launchTooLong(settings);
  if (!tooLong.empty()) throw GenomicParserException(GenomicParserException::kValueOutOfRange, tooLong);
}

void interpretDescriptives(const CommandSpec& spec, GenoJobSettings* settings) {
  const SubComObj* sub = findSubcommand(spec, "DESCRIPTIVES", settings);
  if (!sub) return;
  DescriptivesOptions* options = settings->descriptivesOptions(true);
  readStringList(*sub, "VARIABLES", options->variables);
  if (present(*sub, "SKEWNESS")) options->skewness = true;
  if (present(*sub, "KURTOSIS")) options->kurtosis = true;
}

void interpretFrequencies(const CommandSpec& spec, GenoJobSettings* settings) {
  const SubComObj* sub = findSubcommand(spec, "FREQUENCIES", settings);
  if (!sub) return;
  FrequenciesOptions* options = settings->frequenciesOptions(true);
  readStringList(*sub, "VARIABLES", options->variables);
  int ntiles = 0;
  if (const ParamObj* p = sub->getParamObj("NTILES"); p && p->getIntegerValue(ntiles)) options->ntiles = ntiles;
  std::vector<double> percentiles;
  if (const ParamObj* p = sub->getParamObj("PERCENTILES"); p && p->getNumberList(percentiles)) {
    options->percentiles = std::move(percentiles);
  }
  if (present(*sub, "HISTOGRAM")) options->histogram = true;
  if (present(*sub, "QUARTILES")) options->quartiles = true;
}

void interpretCorrelations(const CommandSpec& spec, GenoJobSettings* settings) {
  const SubComObj* sub = findSubcommand(spec, "CORRELATIONS", settings);
  if (!sub) return;
  CorrelationsOptions* options = settings->correlationsOptions(true);
  readStringList(*sub, "VARIABLES", options->variables);
  std::string pearson;
  if (const ParamObj* p = sub->getParamObj("PEARSON"); p && p->getStringGeneric(pearson)) {
    options->pearson = pearson != "FALSE";
  }
  if (present(*sub, "SPEARMAN")) options->spearman = true;
  if (present(*sub, "KENDALL")) options->kendall = true;
  if (present(*sub, "TWOTAIL")) options->twoTail = true;
  if (present(*sub, "ONETAIL")) options->oneTail = true;
}

void interpretRegression(const CommandSpec& spec, GenoJobSettings* settings) {
  const SubComObj* sub = findSubcommand(spec, "REGRESSION", settings);
  if (!sub) return;
  RegressionOptions* options = settings->regressionOptions(true);
  readStringList(*sub, "INDEPENDENT", options->independent);
  std::string text;
  if (const ParamObj* p = sub->getParamObj("DEPENDENT"); p && p->getStringGeneric(text)) {
    options->dependent = text;
  }
  if (const ParamObj* p = sub->getParamObj("METHOD"); p && p->getStringGeneric(text)) {
    options->method = regressionMethodFromKeyword(text);
  }
  double ci = 0;
  if (const ParamObj* p = sub->getParamObj("CI"); p && p->getNumberValue(ci)) {
    options->confidenceInterval = formatConfidenceInterval(ci);
  }
  if (present(*sub, "NORMALPROBABILITYPLOT")) options->normalProbabilityPlot = true;
}

bool checkJobName(const std::string& name) {
  if (name.size() > kMaxJobNameBytes || isReservedWord(name)) {
    throw GenomicParserException(GenomicParserException::kInvalidJobName);
  }
  const std::string fault = datasetNameFault(name);
  if (!fault.empty()) throw GenomicParserException(GenomicParserException::kInvalidJobName, fault);
  // The job's results become a dataset of this name, and the host compares those without case.
  if (ServerDataManager* datasets = ServerDataManager::GetInstance()) {
    std::vector<SvrDMDataset*> list;
    datasets->GetAllDatasets(list);
    for (const SvrDMDataset* dataset : list) {
      if (!dataset) continue;
      std::string handle;
      dataset->GetHandle(handle);
      if (ZORVMBstricmp_A(handle.c_str(), name.c_str()) == 0) {
        throw GenomicParserException(GenomicParserException::kDuplicateJobName);
      }
    }
  }
  if (GenoStatAlgoManager* manager = GenoStatAlgoManager::existingInstance()) {
    if (manager->isJobPendingOrRunning(name)) {
      throw GenomicParserException(GenomicParserException::kDuplicateJobName);
    }
  }
  return true;
}

}  // namespace genostat::entry

GenoStatCommand::GenoStatCommand(ZORV_TokenSequence* tokens, GenoJobSettings* settings)
    : descriptor_(texts::kProcedureName), tokens_(tokens), settings_(settings) {
  message_.SetCommandName(texts::kProcedureName);
  message_.SetProcedureTitle(texts::kProcedureName);
}

void GenoStatCommand::parseAndInterpret() {
  using namespace genostat::entry;
  try {
    buildGrammar(descriptor_);
    CommandSpec spec;
    UniversalParser parser(tokens_, &spec, &descriptor_);
    if (parser.getCommandSpecifications() != 0) {
      // The parser has reported the grammar error itself.
      parseFailed_ = true;
      return;
    }
    runPreChecks();
    // PRINT and DELETE first: they decide the mode, which decides what JOB checks.
    interpretPrint(spec, settings_);
    interpretDelete(spec, settings_);
    interpretJob(spec, settings_);
    interpretDescriptives(spec, settings_);
    interpretFrequencies(spec, settings_);
    interpretCorrelations(spec, settings_);
    interpretRegression(spec, settings_);
    checkLaunchFits(settings_);
    parseFailed_ = false;
  } catch (const GenomicParserException& e) {
    parseFailed_ = true;
    message_.GenericError(e.what(), nullptr, nullptr, nullptr, nullptr, nullptr);
  } catch (const std::exception&) {
    parseFailed_ = true;
    message_.GenericError(GenomicParserException::baseText(0), nullptr, nullptr, nullptr, nullptr, nullptr);
  }
}
