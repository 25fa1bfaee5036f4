// The Windows side of the module tests' fixtures: an installation folder whose launcher is the
// tests' own statisticspython3.bat running the stand-in analysis program, process liveness, the
// export table of the built DLL, and the loader's process attach for this test program, which
// links the module's objects (a program's DllMain is never called by the loader).
#include <windows.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>

#include "module_test_support.h"
#include "win32_test_support.h"

namespace mt {

const bool kStandInEndsBySignal = false;

namespace {
// The module's process-attach hook, as module_load.cpp defines it.
extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID reserved);
const bool g_attached = [] {
  DllMain(::GetModuleHandleW(nullptr), DLL_PROCESS_ATTACH, nullptr);
  return true;
}();
}  // namespace

std::filesystem::path testProgramFolder() {
  wchar_t self[MAX_PATH] = {};
  ::GetModuleFileNameW(nullptr, self, MAX_PATH);
  return std::filesystem::path(self).parent_path();
}

void install(const std::string& base, Launcher launcher, bool scriptInScripts) {
  namespace fs = std::filesystem;
  const fs::path folder = fs::u8path(base);
  fs::create_directories(folder / "scripts");
  const fs::path script = scriptInScripts ? folder / "scripts" / "genostat.pyc" : folder / "genostat.pyc";
  std::ofstream(script, std::ios::binary) << "stand-in: the launcher runs standin-analysis.exe";
  fs::copy_file(testProgramFolder() / "standin-analysis.exe", folder / "standin-analysis.exe",
                fs::copy_options::overwrite_existing);
  // A batch file cannot be made non-executable: both kinds of broken launcher are a missing one.
  if (launcher != Launcher::Runs) return;
  fs::copy_file(testProgramFolder() / "standin-launcher.bat", folder / "statisticspython3.bat",
                fs::copy_options::overwrite_existing);
}

bool processGone(int pid) {
  if (pid <= 0) return true;
  const HANDLE process = ::OpenProcess(SYNCHRONIZE, FALSE, static_cast<DWORD>(pid));
  if (process == nullptr) return true;
  const bool ended = ::WaitForSingleObject(process, 0) == WAIT_OBJECT_0;
  ::CloseHandle(process);
  return ended;
}

std::string hostPath(const std::string& path) {
  std::string native = path;
  for (char& c : native) {
    if (c == '/') c = '\\';
  }
  return native;
}

std::set<std::string> exportedNames(const std::string& library, std::string& error) {
  std::set<std::string> names;
  // Loaded for real, so the loader's attach runs as it does for the host.
  const HMODULE module = ::LoadLibraryW(std::filesystem::u8path(library).wstring().c_str());
  if (module == nullptr) {
    error = "cannot load " + library + " (error " + std::to_string(::GetLastError()) + ")";
    return names;
  }
  const auto* base = reinterpret_cast<const unsigned char*>(module);
  const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  const auto* nt = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
  const IMAGE_DATA_DIRECTORY& directory = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT];
  if (directory.VirtualAddress == 0) {
    error = library + " has no export table";
  } else {
    const auto* exports = reinterpret_cast<const IMAGE_EXPORT_DIRECTORY*>(base + directory.VirtualAddress);
    const auto* nameOffsets = reinterpret_cast<const DWORD*>(base + exports->AddressOfNames);
    for (DWORD i = 0; i < exports->NumberOfNames; ++i) {
      names.insert(reinterpret_cast<const char*>(base + nameOffsets[i]));
    }
  }
  ::FreeLibrary(module);
  return names;
}

void* loadedObjectBase(const void* code) {
  HMODULE module = nullptr;
  if (!::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                            static_cast<LPCWSTR>(code), &module)) {
    return nullptr;
  }
  return module;
}

}  // namespace mt

// The free watch's operator delete. MinGW's operator new takes its memory from malloc, so free
// gives it back; nothing else in the binary replaces delete.
void operator delete(void* p) noexcept {
  mt::freewatch::noteFree(p);
  std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
  mt::freewatch::noteFree(p);
  std::free(p);
}
