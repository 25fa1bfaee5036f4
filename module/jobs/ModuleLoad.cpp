// The load-time cache. Written once while the loader runs the module's initialisers, before any
// thread can enter the module, and only read afterwards, so plain storage is enough.
#include "jobs/ModuleLoad.h"

#include "host/commonblocks.h"

namespace genostat::load {

namespace {
void* g_moduleHandle = nullptr;
void* g_commonBlocks[kCommonBlockCount] = {};
}  // namespace

void onModuleLoad(void* handle) {
  g_moduleHandle = handle;
  // The host hands the blocks out in this order; the index of each is its place here.
  void* const blocks[kCommonBlockCount] = {
      pvGetCmnBpr(), pvGetCmaDic(), pvGetCmaGlb(), pvGetCmaMch(), pvGetCmaObv(), pvGetCmaSym(),
      pvGetCmaSys(), pvGetCmnDic(), pvGetCmnDmo(), pvGetCmnGlb(), pvGetCmnInc(), pvGetCmnIo(),
      pvGetCmnLoc(), pvGetCmnMch(), pvGetCmnMcs(), pvGetCmnObv(), pvGetCmnStk(), pvGetCmnSym(),
      pvGetCmnSys(), pvGetCmnWrk(), pvGetCmnDtm(), pvGetCmnBox()};
  for (std::size_t i = 0; i < kCommonBlockCount; ++i) g_commonBlocks[i] = blocks[i];
}

void* moduleHandle() { return g_moduleHandle; }

void* commonBlock(std::size_t index) {
  return index < kCommonBlockCount ? g_commonBlocks[index] : nullptr;
}

}  // namespace genostat::load
