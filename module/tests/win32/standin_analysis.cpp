// Stand-in for the analysis script in the module's Windows tests (there is no Python under Wine).
// The tests' statisticspython3.bat runs it with the script path and the base64 parameter JSON, as
// the real launcher runs the interpreter, and it follows the plans of the POSIX stand-in (listed in
// golden/README.md) but "echo" and "signal". "--exit n" ends it at once with code n; "--sleep" is
// the sleeping child and grandchild that "children" starts.
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <windows.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace {

namespace fs = std::filesystem;

bool readFile(const std::string& path, std::string& content) {
  std::ifstream in(fs::u8path(path), std::ios::binary);
  content.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  return in.is_open();
}

void writeFile(const std::string& path, const std::string& content) {
  std::ofstream(fs::u8path(path), std::ios::binary) << content;
}

std::string toJson(const rapidjson::Value& value) {
  rapidjson::StringBuffer json;
  rapidjson::Writer<rapidjson::StringBuffer> writer(json);
  value.Accept(writer);
  return json.GetString();
}

// Strict, as Python's decoder: only whole groups of four, '=' only as padding.
bool decodeBase64(const std::string& text, std::string& out) {
  static const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  if (text.size() % 4 != 0) return false;
  unsigned value = 0;
  int bits = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '=') return i + 2 >= text.size();
    const size_t index = alphabet.find(text[i]);
    if (index == std::string::npos) return false;
    value = (value << 6) | static_cast<unsigned>(index);
    if ((bits += 6) >= 8) out.push_back(static_cast<char>((value >> (bits -= 8)) & 0xFF));
  }
  return true;
}

// Starts this program again sleeping, with `extra` before its arguments; returns the new process's id.
DWORD startSleeper(const std::wstring& extra) {
  wchar_t self[MAX_PATH];
  ::GetModuleFileNameW(nullptr, self, MAX_PATH);
  std::wstring line = L"\"" + std::wstring(self) + L"\" --sleep " + extra;
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION info{};
  if (!::CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &info)) return 0;
  ::CloseHandle(info.hThread);
  ::CloseHandle(info.hProcess);
  return info.dwProcessId;
}

int run(int argc, wchar_t** argv) {
  if (argc != 3) return 13;
  std::string text;
  rapidjson::Document params;
  if (!decodeBase64(fs::path(argv[2]).u8string(), text) || params.Parse(text.c_str()).HasParseError() ||
      !params.IsObject())
    return 3;
  const rapidjson::Value& job = params["fastq_data"][0];
  const std::string csvPath = job["CSV_Path"].GetString();
  const size_t dot = csvPath.rfind('.');
  const std::string details = (dot == std::string::npos ? csvPath : csvPath.substr(0, dot)) + ".error";
  const std::string source = job.HasMember("files") && job["files"].Size() > 0
                                 ? std::string(job["files"][0].GetString())
                                 : std::string(job.HasMember("folder") ? job["folder"].GetString() : "") + "/plan.json";
  std::string content;
  rapidjson::Document plan;
  if (!readFile(source, content)) {
    plan.SetObject().AddMember("FILE_PATH", rapidjson::Value(source.c_str(), plan.GetAllocator()), plan.GetAllocator());
    writeFile(details, toJson(plan));
    return 2;
  }
  if (plan.Parse(content.c_str()).HasParseError() || !plan.IsObject()) return 12;
  if (plan.HasMember("rows")) {
    // What the module counts: the sample and adapter columns, then the 25 metrics.
    std::string csv = "Sample,Adapter_Type";
    for (int n = 1; n <= 25; ++n) csv += ",metric" + std::to_string(n);
    for (int row = 0; row < plan["rows"].GetInt(); ++row) {
      csv += "\ns" + std::to_string(row) + ",NONE";
      for (int n = 1; n <= 25; ++n) csv += "," + std::to_string(row);
    }
    writeFile(csvPath, csv + "\n");
  }
  if (plan.HasMember("csv")) writeFile(csvPath, plan["csv"].GetString());
  if (plan.HasMember("details")) writeFile(details, toJson(plan["details"]));
  if (plan.HasMember("children")) {
    const std::string marker = std::string(plan["children"].GetString()) + ".grandchild";
    const DWORD child = startSleeper(L"\"" + fs::u8path(marker).wstring() + L"\"");
    std::string grandchild;
    while (!readFile(marker, grandchild) || grandchild.empty()) ::Sleep(10);
    writeFile(plan["children"].GetString(),
              std::to_string(::GetCurrentProcessId()) + " " + std::to_string(child) + " " + grandchild);
  }
  HANDLE held = INVALID_HANDLE_VALUE;  // the partial result, open and unshared until the end
  if (plan.HasMember("part")) {
    held = ::CreateFileW(fs::u8path(csvPath + ".part").c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                         FILE_ATTRIBUTE_NORMAL, nullptr);
  }
  if (plan.HasMember("ready")) writeFile(plan["ready"].GetString(), "");
  if (plan.HasMember("sleep")) ::Sleep(static_cast<DWORD>(plan["sleep"].GetDouble() * 1000));
  if (held != INVALID_HANDLE_VALUE) ::CloseHandle(held);
  return plan.HasMember("exit") ? plan["exit"].GetInt() : 0;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  if (argc == 3 && std::wstring(argv[1]) == L"--exit") return _wtoi(argv[2]);
  if (argc >= 2 && std::wstring(argv[1]) == L"--sleep") {
    // A child writes its own child's id to the file it was given; both then sleep.
    if (argc == 3) writeFile(fs::path(argv[2]).u8string(), std::to_string(startSleeper(L"")));
    ::Sleep(60000);
    return 0;
  }
  return run(argc, argv);
}
