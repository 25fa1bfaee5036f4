// Stand-in for the analysis script in the module's Windows job tests (there is no Python under
// Wine). The tests' statisticspython3.bat runs it with the script path and the base64 parameter
// JSON, exactly as the real launcher runs the interpreter. Like the POSIX stand-in, it does what
// the first input file of its job asks, written there as a JSON object:
//
//   "log": path        append "<tag>+" when it starts and "<tag>-" when it ends
//   "echo": path       write what it received: its arguments, the decoded parameters, its process
//                      and parent ids, working folder and GENOSTAT_TEST_MARK (all as UTF-8)
//   "rows": n          write a result CSV with the 27 metric columns and n data rows
//   "csv": "empty"     write an empty result CSV ("header": the header line only)
//   "details": {...}   write the error-details file beside the result CSV
//   "children": path   start a child that starts a grandchild, both sleeping; write "child grandchild"
//   "ready": path      create this file once all of the above is done
//   "part": true       open CSV_Path + ".part" unshared and keep it open (a partial result)
//   "sleep": seconds   then sleep (a hang, for cancellation)
//   "exit": n          then exit with this code (0 when absent)
//
// Started with "--exit n" it ends at once with that code; "--child file" and "--grandchild" are
// the sleeping descendants that "children" starts.
//
// An input file that cannot be read ends the run with exit code 2 and the file's path in the
// details file's FILE_PATH, as the real script does.
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "win32_test_support.h"

namespace {

using mt::decodeBase64;
using mt::parentOf;
using mt::utf8Of;
using mt::wideOf;

const char* const kColumns[] = {
    "Sample", "Adapter_Type", "Total_Sequences", "Total_Bases", "Sequence_length", "GC",
    "total_deduplicated_percentage", "avg_sequence_length", "median_sequence_length", "basic_statistics",
    "per_base_sequence_quality", "per_sequence_quality_scores", "per_base_sequence_content",
    "per_sequence_gc_content", "per_base_n_content", "sequence_length_distribution",
    "sequence_duplication_levels", "overrepresented_sequences", "adapter_content", "per_tile_sequence_quality",
    "qc_score", "median_phred_first_10bp", "median_phred_last_10bp", "mean_phred_all_reads",
    "low_complexity_percentage", "unexpected_bases_percentage", "overrepresented_seq_count"};

bool readFile(const std::string& path, std::string& content) {
  FILE* in = ::_wfopen(wideOf(path).c_str(), L"rb");
  if (in == nullptr) return false;
  char buffer[4096];
  size_t n;
  while ((n = std::fread(buffer, 1, sizeof buffer, in)) > 0) content.append(buffer, n);
  std::fclose(in);
  return true;
}

void writeFile(const std::string& path, const std::string& content, const wchar_t* mode = L"wb") {
  FILE* out = ::_wfopen(wideOf(path).c_str(), mode);
  if (out == nullptr) return;
  std::fwrite(content.data(), 1, content.size(), out);
  std::fclose(out);
}

std::string toJson(const rapidjson::Value& value) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  value.Accept(writer);
  return buffer.GetString();
}

std::string detailsPath(const std::string& csv) {
  const size_t dot = csv.rfind('.');
  return (dot == std::string::npos ? csv : csv.substr(0, dot)) + ".error";
}

// Starts this program again with `arguments`; returns the new process's id (0 on failure).
DWORD startSelf(const std::wstring& arguments) {
  wchar_t self[MAX_PATH];
  ::GetModuleFileNameW(nullptr, self, MAX_PATH);
  std::wstring line = L"\"" + std::wstring(self) + L"\" " + arguments;
  std::vector<wchar_t> buffer(line.begin(), line.end());
  buffer.push_back(L'\0');
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION info{};
  if (!::CreateProcessW(nullptr, buffer.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &info)) {
    return 0;
  }
  ::CloseHandle(info.hThread);
  ::CloseHandle(info.hProcess);
  return info.dwProcessId;
}

// --child <file>: start a grandchild, write its id to <file>, sleep. --grandchild: sleep.
int runDescendant(int argc, wchar_t** argv) {
  if (std::wstring(argv[1]) == L"--child" && argc == 3) {
    const DWORD grandchild = startSelf(L"--grandchild");
    writeFile(utf8Of(argv[2]), std::to_string(grandchild));
  }
  ::Sleep(60000);
  return 0;
}

int run(int argc, wchar_t** argv) {
  if (argc != 3) return 13;
  rapidjson::Document params;
  params.Parse(decodeBase64(utf8Of(argv[2])).c_str());
  if (params.HasParseError() || !params.IsObject()) return 12;
  const rapidjson::Value& job = params["fastq_data"][0];
  const std::string csvPath = job["CSV_Path"].GetString();

  rapidjson::Document plan;
  plan.SetObject();
  if (job.HasMember("files") && job["files"].Size() > 0) {
    const std::string first = job["files"][0].GetString();
    std::string content;
    if (!readFile(first, content)) {
      rapidjson::Document details;
      details.SetObject();
      details.AddMember("FILE_PATH", rapidjson::Value(first.c_str(), details.GetAllocator()), details.GetAllocator());
      writeFile(detailsPath(csvPath), toJson(details));
      return 2;
    }
    plan.Parse(content.c_str());
    if (plan.HasParseError() || !plan.IsObject()) return 12;
  }
  const std::string tag = plan.HasMember("tag") ? plan["tag"].GetString() : "";
  if (plan.HasMember("log")) writeFile(plan["log"].GetString(), tag + "+", L"ab");
  if (plan.HasMember("echo")) {
    rapidjson::Document echo;
    echo.SetObject();
    auto& a = echo.GetAllocator();
    rapidjson::Value args(rapidjson::kArrayType);
    for (int i = 1; i < argc; ++i) args.PushBack(rapidjson::Value(utf8Of(argv[i]).c_str(), a), a);
    echo.AddMember("argv", args, a);
    echo.AddMember("params", rapidjson::Value(params, a), a);
    echo.AddMember("pid", static_cast<uint64_t>(::GetCurrentProcessId()), a);
    echo.AddMember("ppid", static_cast<uint64_t>(parentOf(::GetCurrentProcessId())), a);
    wchar_t cwd[MAX_PATH] = {};
    ::GetCurrentDirectoryW(MAX_PATH, cwd);
    echo.AddMember("cwd", rapidjson::Value(utf8Of(cwd).c_str(), a), a);
    wchar_t mark[256] = {};
    const DWORD length = ::GetEnvironmentVariableW(L"GENOSTAT_TEST_MARK", mark, 256);
    echo.AddMember("mark", rapidjson::Value(length > 0 ? utf8Of(mark).c_str() : "", a), a);
    writeFile(plan["echo"].GetString(), toJson(echo));
  }
  if (plan.HasMember("rows") || plan.HasMember("csv")) {
    std::string csv;
    const std::string kind = plan.HasMember("csv") ? plan["csv"].GetString() : "";
    if (kind != "empty") {
      for (const char* column : kColumns) csv += std::string(csv.empty() ? "" : ",") + column;
      csv += "\n";
    }
    const int rows = plan.HasMember("rows") ? plan["rows"].GetInt() : 0;
    for (int row = 0; row < rows; ++row) {
      csv += "s" + std::to_string(row) + ",NONE";
      for (size_t c = 2; c < sizeof kColumns / sizeof kColumns[0]; ++c) csv += "," + std::to_string(row);
      csv += "\n";
    }
    writeFile(csvPath, csv);
  }
  if (plan.HasMember("details")) writeFile(detailsPath(csvPath), toJson(plan["details"]));
  if (plan.HasMember("children")) {
    const std::string path = plan["children"].GetString();
    const std::string grandchildFile = path + ".grandchild";
    const DWORD child = startSelf(L"--child \"" + wideOf(grandchildFile) + L"\"");
    std::string grandchild;
    for (int i = 0; i < 500 && grandchild.empty(); ++i) {
      readFile(grandchildFile, grandchild);
      if (grandchild.empty()) ::Sleep(10);
    }
    writeFile(path, std::to_string(child) + " " + grandchild);
  }
  HANDLE held = INVALID_HANDLE_VALUE;  // the partial result, open and unshared until the end
  if (plan.HasMember("part")) {
    held = ::CreateFileW(wideOf(csvPath + ".part").c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                         FILE_ATTRIBUTE_NORMAL, nullptr);
    DWORD written = 0;
    if (held != INVALID_HANDLE_VALUE) ::WriteFile(held, "Sample\n", 7, &written, nullptr);
  }
  if (plan.HasMember("ready")) writeFile(plan["ready"].GetString(), "");
  if (plan.HasMember("sleep")) ::Sleep(static_cast<DWORD>(plan["sleep"].GetDouble() * 1000));
  if (plan.HasMember("log")) writeFile(plan["log"].GetString(), tag + "-", L"ab");
  if (held != INVALID_HANDLE_VALUE) ::CloseHandle(held);
  return plan.HasMember("exit") ? plan["exit"].GetInt() : 0;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  // --exit <code>: end at once with that code (for the platform's own process tests).
  if (argc == 3 && std::wstring(argv[1]) == L"--exit") return _wtoi(argv[2]);
  if (argc >= 2 && (std::wstring(argv[1]) == L"--child" || std::wstring(argv[1]) == L"--grandchild")) {
    return runDescendant(argc, argv);
  }
  return run(argc, argv);
}
