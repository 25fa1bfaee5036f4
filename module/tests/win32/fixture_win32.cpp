// The Windows side of the module tests' fixtures: an installation folder whose launcher is the
// tests' own statisticspython3.bat running the stand-in analysis program, process liveness, and the
// export table of the built DLL.
#include <windows.h>

#include "module_test_support.h"

namespace mt {

std::filesystem::path testProgramFolder() {
  wchar_t self[MAX_PATH] = {};
  ::GetModuleFileNameW(nullptr, self, MAX_PATH);
  return std::filesystem::path(self).parent_path();
}

void install(const std::string& base, Launcher launcher, bool scriptInScripts) {
  namespace fs = std::filesystem;
  const fs::path folder = fs::u8path(base);
  fs::create_directories(folder / "scripts");
  std::ofstream(scriptInScripts ? folder / "scripts" / "genostat.pyc" : folder / "genostat.pyc") << "stand-in";
  fs::copy_file(testProgramFolder() / "standin-analysis.exe", folder / "standin-analysis.exe",
                fs::copy_options::overwrite_existing);
  // A batch file cannot be made non-executable: both kinds of broken launcher are a missing one.
  if (launcher != Launcher::Runs) return;
  fs::copy_file(testProgramFolder() / "standin-launcher.bat", folder / "statisticspython3.bat",
                fs::copy_options::overwrite_existing);
}

bool processGone(int pid) {
  const HANDLE process = pid > 0 ? ::OpenProcess(SYNCHRONIZE, FALSE, static_cast<DWORD>(pid)) : nullptr;
  if (process == nullptr) return true;
  const bool ended = ::WaitForSingleObject(process, 0) == WAIT_OBJECT_0;
  ::CloseHandle(process);
  return ended;
}

std::string hostPath(const std::string& path) {
  std::string native = path;
  for (char& c : native) c = c == '/' ? '\\' : c;
  return native;
}

std::set<std::string> exportedNames(const std::string& library, std::string& error) {
  std::set<std::string> names;
  const HMODULE module = ::LoadLibraryW(std::filesystem::u8path(library).wstring().c_str());
  if (module == nullptr) {
    error = "cannot load " + library + " (error " + std::to_string(::GetLastError()) + ")";
    return names;
  }
  const auto* base = reinterpret_cast<const unsigned char*>(module);
  const auto* nt =
      reinterpret_cast<const IMAGE_NT_HEADERS*>(base + reinterpret_cast<const IMAGE_DOS_HEADER*>(base)->e_lfanew);
  const IMAGE_DATA_DIRECTORY& directory = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT];
  if (directory.VirtualAddress == 0) error = library + " has no export table";
  const auto* exports = reinterpret_cast<const IMAGE_EXPORT_DIRECTORY*>(base + directory.VirtualAddress);
  for (DWORD i = 0; directory.VirtualAddress != 0 && i < exports->NumberOfNames; ++i) {
    names.insert(
        reinterpret_cast<const char*>(base + reinterpret_cast<const DWORD*>(base + exports->AddressOfNames)[i]));
  }
  ::FreeLibrary(module);
  return names;
}

}  // namespace mt
