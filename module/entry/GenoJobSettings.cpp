#include "entry/GenoJobSettings.h"

#include <rapidjson/document.h>

#include <cstdlib>

#include "host/control.h"

namespace {

// "workbook_id" and "paragraph_id" arrive as JSON strings; any other JSON type leaves the default.
void readStringId(const rapidjson::Value& object, const char* name, int32_t& target) {
  auto it = object.FindMember(name);
  if (it != object.MemberEnd() && it->value.IsString()) {
    target = static_cast<int32_t>(std::atoi(it->value.GetString()));
  }
}

}  // namespace

GenoJobSettings::GenoJobSettings() {
  metadataJson = GetMetaDataJson();
  if (metadataJson.empty()) return;

  rapidjson::Document doc;
  doc.Parse(metadataJson.c_str(), metadataJson.size());
  if (!doc.HasParseError() && doc.IsObject()) {
    auto meta = doc.FindMember("job_metadata");
    if (meta != doc.MemberEnd() && meta->value.IsObject()) {
      readStringId(meta->value, "workbook_id", workbookId);
      readStringId(meta->value, "paragraph_id", paragraphId);
    }
  }
  // The host's metadata belongs to one command: once read, clear it, parsed or not.
  resetMetadataJson();
}

GenoJobSettings::~GenoJobSettings() = default;

DescriptivesOptions* GenoJobSettings::descriptivesOptions(bool create) {
  if (!descriptives && create) descriptives = std::make_unique<DescriptivesOptions>();
  return descriptives.get();
}

FrequenciesOptions* GenoJobSettings::frequenciesOptions(bool create) {
  if (!frequencies && create) frequencies = std::make_unique<FrequenciesOptions>();
  return frequencies.get();
}

CorrelationsOptions* GenoJobSettings::correlationsOptions(bool create) {
  if (!correlations && create) correlations = std::make_unique<CorrelationsOptions>();
  return correlations.get();
}

RegressionOptions* GenoJobSettings::regressionOptions(bool create) {
  if (!regression && create) regression = std::make_unique<RegressionOptions>();
  return regression.get();
}

void GenoJobSettings::setCustomAdapterSequence(const std::string& sequence) {
  customAdapterSequence = sequence;
  adapterType = AdapterType::CUSTOM;
}
