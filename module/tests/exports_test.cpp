// What the module shows the host: exactly its three C functions and the manager's class interface,
// and the host data it caches when it is loaded.
#include <gtest/gtest.h>

#ifndef _WIN32
#include <dlfcn.h>
#endif

#include <cstdio>
#include <cstdlib>
#include <set>
#include <sstream>
#include <string>

#include "host/commonblocks.h"
#include "jobs/GenoStatAlgoManager.h"
#include "jobs/ModuleLoad.h"

namespace {

// The shared library as the build made it; an environment variable of that name wins.
std::string moduleLibrary() {
  if (const char* fromEnvironment = std::getenv("GENOSTAT_MODULE_LIBRARY")) return fromEnvironment;
#ifdef GENOSTAT_MODULE_LIBRARY
  return GENOSTAT_MODULE_LIBRARY;
#else
  return std::string();
#endif
}

bool startsWith(const std::string& text, const std::string& prefix) { return text.rfind(prefix, 0) == 0; }

// Defined dynamic symbols of `library`, or an error text in `error`.
std::set<std::string> definedDynamicSymbols(const std::string& library, std::string& error) {
  std::set<std::string> names;
  const std::string command = "nm -D --defined-only '" + library + "' 2>&1";
  FILE* pipe = ::popen(command.c_str(), "r");
  if (pipe == nullptr) {
    error = "cannot run nm";
    return names;
  }
  std::string output;
  char buffer[4096];
  size_t n;
  while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) output.append(buffer, n);
  const int status = ::pclose(pipe);
  if (status != 0) {
    error = "nm failed: " + output;
    return names;
  }
  std::istringstream lines(output);
  std::string line;
  while (std::getline(lines, line)) {
    // "<address> <type> <name>"; the name is the last field.
    const std::string::size_type blank = line.rfind(' ');
    if (blank != std::string::npos) names.insert(line.substr(blank + 1));
  }
  return names;
}

TEST(Exports, ExactlyTheEntryTheClientFunctionsAndTheManager) {
  const std::string library = moduleLibrary();
  if (library.empty()) GTEST_SKIP() << "the build did not say where the module library is";
  std::string error;
  const std::set<std::string> names = definedDynamicSymbols(library, error);
  ASSERT_TRUE(error.empty()) << error;

  const std::string manager = "_ZN19GenoStatAlgoManager";        // members and static data
  const std::string constManager = "_ZNK19GenoStatAlgoManager";  // const members
  for (const std::string& name : names) {
    const bool allowed = name == "GENOSTAT" || name == "getGenoManagerInstance" || name == "cancelGenoJob" ||
                         startsWith(name, manager) || startsWith(name, constManager) ||
                         startsWith(name, "_ZTI19GenoStatAlgoManager") ||
                         startsWith(name, "_ZTS19GenoStatAlgoManager") ||
                         startsWith(name, "_ZTV19GenoStatAlgoManager");
    EXPECT_TRUE(allowed) << "unexpected export: " << name;
  }
  for (const char* required :
       {"GENOSTAT", "getGenoManagerInstance", "cancelGenoJob", "_ZN19GenoStatAlgoManager18getManagerInstanceEv",
        "_ZN19GenoStatAlgoManager16existingInstanceEv", "_ZN19GenoStatAlgoManager13addJobToQueueEP15GenoJobSettings",
        "_ZN19GenoStatAlgoManager11isQueueFullEv",
        "_ZN19GenoStatAlgoManager21isJobPendingOrRunningERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE",
        "_ZN19GenoStatAlgoManager9cancelJobERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE",
        "_ZN19GenoStatAlgoManager21cancellAllJobsPendingEv", "_ZN19GenoStatAlgoManager21generateUniqueJobNameB5cxx11Ev",
        "_ZN19GenoStatAlgoManagerD1Ev", "_ZN19GenoStatAlgoManager10m_pAlgoMgrE",
        "_ZN19GenoStatAlgoManager10m_initFlagE"}) {
    EXPECT_EQ(names.count(required), 1u) << "missing export: " << required;
  }
}

TEST(ModuleLoad, CachesTheCommonBlocksInLoadOrder) {
  // The test binary links the module's objects, so the load hook has run for it as well.
  void* const expected[genostat::load::kCommonBlockCount] = {
      pvGetCmnBpr(), pvGetCmaDic(), pvGetCmaGlb(), pvGetCmaMch(), pvGetCmaObv(), pvGetCmaSym(),
      pvGetCmaSys(), pvGetCmnDic(), pvGetCmnDmo(), pvGetCmnGlb(), pvGetCmnInc(), pvGetCmnIo(),
      pvGetCmnLoc(), pvGetCmnMch(), pvGetCmnMcs(), pvGetCmnObv(), pvGetCmnStk(), pvGetCmnSym(),
      pvGetCmnSys(), pvGetCmnWrk(), pvGetCmnDtm(), pvGetCmnBox()};
  for (std::size_t i = 0; i < genostat::load::kCommonBlockCount; ++i) {
    EXPECT_NE(genostat::load::commonBlock(i), nullptr) << i;
    EXPECT_EQ(genostat::load::commonBlock(i), expected[i]) << i;
  }
  EXPECT_EQ(genostat::load::commonBlock(genostat::load::kCommonBlockCount), nullptr);
  EXPECT_NE(genostat::load::moduleHandle(), nullptr);
}

TEST(ModuleLoad, HandleIsTheLoadedModulesBase) {
  // The handle names the object that holds the module's code: the library for the host, this
  // binary here, whose objects include the module's.
  Dl_info info{};
  ASSERT_NE(::dladdr(reinterpret_cast<void*>(&getGenoManagerInstance), &info), 0);
  EXPECT_EQ(genostat::load::moduleHandle(), info.dli_fbase);
}

}  // namespace
