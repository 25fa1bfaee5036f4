// What the module shows the host: exactly its three C functions and the manager's class interface,
// and the host data it caches when it is loaded.
#include <gtest/gtest.h>

#include <cstdlib>
#include <set>
#include <sstream>
#include <string>

#include "host/commonblocks.h"
#include "jobs/GenoStatAlgoManager.h"
#include "jobs/ModuleLoad.h"
#include "module_test_support.h"

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

TEST(Exports, ExactlyTheEntryTheClientFunctionsAndTheManager) {
  const std::string library = moduleLibrary();
  if (library.empty()) GTEST_SKIP() << "the build did not say where the module library is";
  std::string error;
  const std::set<std::string> names = mt::exportedNames(library, error);
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
  EXPECT_EQ(genostat::load::moduleHandle(), mt::loadedObjectBase(reinterpret_cast<const void*>(&getGenoManagerInstance)));
}

}  // namespace
