// The parameter document handed to the analysis script, its base64 form, and a quote escaper.
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstdint>
#include <string>

#include "jobs/GenoStatAlgoManager.h"

namespace {

const char* adapterText(AdapterType type) {
  switch (type) {
    case AdapterType::ILLUMINA:
      return "ILLUMINA";
    case AdapterType::NEXTERA:
      return "NEXTERA";
    case AdapterType::CUSTOM:
      return "CUSTOM";
    case AdapterType::NONE:
      break;
  }
  return "NONE";  // also for a value outside the enumeration
}

// Values are taken up to their first NUL byte, as the C strings they stand for.
rapidjson::Value copyString(const std::string& text, rapidjson::Document::AllocatorType& allocator) {
  rapidjson::Value value;
  value.SetString(text.c_str(), allocator);
  return value;
}

}  // namespace

void GenoStatAlgoManager::generateParameterJSON(const GenoJobSettings* settings, std::string& out) {
  if (settings == nullptr) return;
  rapidjson::Document document(rapidjson::kObjectType);
  rapidjson::Document::AllocatorType& allocator = document.GetAllocator();

  // Member order matters to readers that compare texts: adapter, custom_sequence, CSV_Path, then
  // exactly one of files and folder.
  rapidjson::Value job(rapidjson::kObjectType);
  job.AddMember("adapter", rapidjson::StringRef(adapterText(settings->adapterType)), allocator);
  job.AddMember("custom_sequence", copyString(settings->customAdapterSequence, allocator), allocator);
  job.AddMember("CSV_Path", copyString(settings->csvFilePath, allocator), allocator);
  if (!settings->fastqFiles.empty()) {
    rapidjson::Value files(rapidjson::kArrayType);
    for (const std::string& file : settings->fastqFiles) files.PushBack(copyString(file, allocator), allocator);
    job.AddMember("files", files, allocator);
  } else {
    job.AddMember("folder", copyString(settings->fastqFolder, allocator), allocator);
  }
  rapidjson::Value jobs(rapidjson::kArrayType);
  jobs.PushBack(job, allocator);
  document.AddMember("fastq_data", jobs, allocator);

  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  document.Accept(writer);
  out.assign(buffer.GetString(), buffer.GetSize());
}

std::string GenoStatAlgoManager::base64_encode(const std::string& data) {
  static const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string encoded;
  encoded.reserve((data.size() + 2) / 3 * 4);
  uint32_t accumulator = 0;
  int bits = -6;
  for (const char c : data) {
    accumulator = (accumulator << 8) + static_cast<unsigned char>(c);
    bits += 8;
    while (bits >= 0) {
      encoded.push_back(kAlphabet[(accumulator >> bits) & 0x3F]);
      bits -= 6;
    }
  }
  if (bits > -6) encoded.push_back(kAlphabet[((accumulator << 8) >> (bits + 8)) & 0x3F]);
  while (encoded.size() % 4 != 0) encoded.push_back('=');
  return encoded;
}

std::string GenoStatAlgoManager::escapeJsonForCommandLine(const std::string& json) const {
  // Quotes only: backslashes are left as they are. The run passes the document in base64, which
  // needs no escaping; this stays for callers that put raw JSON on a command line.
  std::string escaped;
  escaped.reserve(json.size() * 2);
  for (const char c : json) {
    if (c == '"') escaped.push_back('\\');
    escaped.push_back(c);
  }
  return escaped;
}
