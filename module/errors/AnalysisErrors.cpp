// Texts of a failed analysis, chosen by the script's exit code, and the error-details file the
// script may leave beside its result.
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

#include "entry/Texts.h"
#include "jobs/GenoStatAlgoManager.h"

namespace {

struct ErrorTemplate {
  const char* key;          // localisation key; null: no text
  const char* placeholder;  // appended without a separator; null: none
};

// Indexed by exit code; codes from 14 up (and every negative code) read "Unknown error occurred".
constexpr ErrorTemplate kErrorTemplates[] = {
    {nullptr, nullptr},
    {texts::kGeneralError, "{{ERROR_MESSAGE}}"},
    {texts::kFileNotFound, "{{FILE_PATH}}"},
    {texts::kInvalidJsonConfiguration, nullptr},
    {texts::kInvalidConfiguration, nullptr},
    {texts::kErrorProcessingFastq, "{{FILE_NAME}}"},
    {texts::kMissingPythonDependencies, "{{DEPENDENCIES}}"},
    {texts::kPermissionDenied, "{{RESOURCE_PATH}}"},
    {texts::kNoFastqFilesFound, "{{FOLDER_PATH}}"},
    {texts::kErrorWritingOutput, "{{OUTPUT_PATH}}"},
    {texts::kInvalidAdapterSequence, "{{ADAPTER_SEQUENCE}}"},
    {texts::kErrorInParallelProcessing, nullptr},
    {texts::kInsufficientMemory, "{{RESOURCE_NAME}}"},
    {texts::kInvalidCommandLineArguments, nullptr},
};
constexpr uint32_t kErrorTemplateCount = sizeof(kErrorTemplates) / sizeof(kErrorTemplates[0]);

// The details file is named after the result: up to its last '.' (searched over the whole path,
// folders included), then ".error".
std::string errorDetailsPath(const std::string& resultPath) {
  const std::size_t dot = resultPath.rfind('.');
  return (dot == std::string::npos ? resultPath : resultPath.substr(0, dot)) + ".error";
}

}  // namespace

std::string GenoStatAlgoManager::getErrorMessageTemplate(int32_t exitCode) const {
  // Unsigned, so that negative codes fall to the last row.
  const auto code = static_cast<uint32_t>(exitCode);
  if (code >= kErrorTemplateCount) return getLocalizedString(texts::kUnknownErrorOccurred);
  const ErrorTemplate& entry = kErrorTemplates[code];
  std::string text;
  if (entry.key) text = getLocalizedString(entry.key);
  if (entry.placeholder) text += entry.placeholder;
  return text;
}

std::string GenoStatAlgoManager::getTranslatedErrorMessage(const std::string& key) const {
  return getLocalizedString(key);
}

rapidjson::Document GenoStatAlgoManager::readErrorDetails(const std::string& resultPath) {
  rapidjson::Document details;
  const std::string path = errorDetailsPath(resultPath);
  if (!fileExists(path)) {
    std::fputs(texts::kErrorFileNotFound, stdout);
    std::fflush(stdout);
    return details;
  }
  std::string content;
  {
    std::ifstream in(path, std::ios::binary);
    content.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  // A malformed file leaves whatever the parser made of it; callers only use an object.
  details.Parse(content.c_str(), content.size());
  std::fputs(texts::kErrorFileContent, stdout);
  std::fwrite(content.data(), 1, content.size(), stdout);
  std::fflush(stdout);
  std::remove(path.c_str());
  return details;
}

std::string GenoStatAlgoManager::replacePlaceholders(const std::string& text,
                                                     const rapidjson::Document& details) {
  std::string out = text;
  if (!details.IsObject()) return out;
  for (auto member = details.MemberBegin(); member != details.MemberEnd(); ++member) {
    if (!member->value.IsString()) continue;
    const std::string key = std::string("{{") + member->name.GetString() + "}}";
    const std::string value(member->value.GetString(), member->value.GetStringLength());
    // The search goes on behind each inserted value, so a value holding its own key is kept as is.
    std::size_t pos = 0;
    while ((pos = out.find(key, pos)) != std::string::npos) {
      out.replace(pos, key.size(), value);
      pos += value.size();
    }
  }
  return out;
}
