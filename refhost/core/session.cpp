// The reference host's process-wide state: the command being run, its errors, the attached client,
// metadata, folders and the dataset registry.
#include <algorithm>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "host/commonblocks.h"
#include "host/control.h"
#include "host/datasets.h"
#include "host/messages.h"
#include "host/paths.h"
#include "host/platform.h"
#include "host/procedure.h"
#include "host/tokens.h"
#include "platform/files.h"
#include "zorvhost/client.h"

namespace {

// The client may be attached, detached and posted to from different threads; everything else is
// used from the host's command thread, but one mutex keeps the whole state simple and TSan-clean.
std::mutex& stateMutex() {
  static std::mutex m;
  return m;
}

class ClientAdapter final : public ZorvAdapter {
 public:
  ClientAdapter(bool interactive, zorvhost::MessageHandler handler)
      : interactive_(interactive), handler_(std::move(handler)) {}
  int isInteractiveClient() const override { return interactive_ ? 1 : 0; }
  void postClientMessage(int32_t id, const void* message) override {
    if (handler_) handler_(id, message);
  }

 private:
  bool interactive_;
  zorvhost::MessageHandler handler_;
};

class DatasetEntry final : public SvrDMDataset {
 public:
  explicit DatasetEntry(std::string name) : name_(std::move(name)) {}
  DatasetEntry(std::string name, zorvhost::DatasetData data)
      : name_(std::move(name)), data_(std::move(data)) {}
  void GetHandle(std::string& name) const override { name = name_; }
  const std::string& name() const { return name_; }
  void rename(std::string name) { name_ = std::move(name); }
  const zorvhost::DatasetData& data() const { return data_; }

 private:
  std::string name_;
  zorvhost::DatasetData data_;
};

class InstallFolder final : public PathFinder {
 public:
  const std::string& getPath() const override { return path_; }
  void set(std::string p) { path_ = std::move(p); }

 private:
  std::string path_;
};

struct State {
  std::string commandText;
  std::vector<zorvhost::CommandError> errors;
  // Adapters are never freed while the process runs: a poster on another thread may still hold
  // the pointer that GetAdapter() returned when the client is replaced.
  ZorvAdapter* adapter = nullptr;
  std::vector<std::unique_ptr<ZorvAdapter>> retiredAdapters;
  std::string metadata;
  std::string tempPath;
  InstallFolder install;
  std::vector<std::unique_ptr<DatasetEntry>> datasets;
  DatasetEntry* active = nullptr;  // one of `datasets`, or null
};

State& state() {
  static State* s = new State();  // never destroyed: module threads may outlive static teardown
  return *s;
}

bool equalsIgnoreCase(const std::string& a, const std::string& b) {
  return ZORVMBstricmp_A(a.c_str(), b.c_str()) == 0;
}

}  // namespace

// ---- host/ declarations ---------------------------------------------------------------------

ZORV_TokenSequence::ZORV_TokenSequence(bool currentCommand) {
  if (currentCommand) text_ = zorvhost::commandText();
}
ZORV_TokenSequence::~ZORV_TokenSequence() = default;
const std::string& ZORV_TokenSequence::commandText() const { return text_; }

std::string GetMetaDataJson() {
  std::lock_guard<std::mutex> lock(stateMutex());
  return state().metadata;
}

void resetMetadataJson() {
  std::lock_guard<std::mutex> lock(stateMutex());
  state().metadata.clear();
}

extern "C" int ZORVMBstricmp_A(const char* a, const char* b) {
  const auto* x = reinterpret_cast<const unsigned char*>(a);
  const auto* y = reinterpret_cast<const unsigned char*>(b);
  for (;; ++x, ++y) {
    int cx = (*x >= 'A' && *x <= 'Z') ? *x + 32 : *x;
    int cy = (*y >= 'A' && *y <= 'Z') ? *y + 32 : *y;
    if (cx != cy || cx == 0) return cx - cy;
  }
}

extern "C" const char* GetZorvTempPath() {
  std::lock_guard<std::mutex> lock(stateMutex());
  return state().tempPath.c_str();
}

PathFinder::~PathFinder() = default;

PathFinder* PathFactory::getPathInstance(int kind) {
  if (kind != 3) return nullptr;
  return &state().install;
}

SvrDMDataset::~SvrDMDataset() = default;
ServerDataManager::~ServerDataManager() = default;

namespace {
class Registry final : public ServerDataManager {
 public:
  void GetAllDatasets(std::vector<SvrDMDataset*>& list) override {
    std::lock_guard<std::mutex> lock(stateMutex());
    list.clear();
    // An unnamed dataset has no handle the module could compare a job name with.
    for (auto& d : state().datasets) {
      if (!d->name().empty()) list.push_back(d.get());
    }
  }
};
}  // namespace

ServerDataManager* ServerDataManager::GetInstance() {
  static Registry* registry = new Registry();
  return registry;
}

ZorvAdapter::~ZorvAdapter() = default;

ZorvAdapter* GetAdapter() {
  std::lock_guard<std::mutex> lock(stateMutex());
  return state().adapter;
}

ZorvwMsgStartGenomicProcessing::ZorvwMsgStartGenomicProcessing(const std::string& jobName,
                                                               bool started)
    : jobName_(jobName), started_(started) {}
ZorvwMsgStartGenomicProcessing::~ZorvwMsgStartGenomicProcessing() = default;

ZorvwMsgEndGenomicProcessing::ZorvwMsgEndGenomicProcessing(const std::string& jobName,
                                                           const std::string& message,
                                                           const std::string& csvFilePath,
                                                           int32_t workbookId,
                                                           int32_t paragraphId)
    : jobName_(jobName),
      message_(message),
      csvFilePath_(csvFilePath),
      workbookId_(workbookId),
      paragraphId_(paragraphId) {}
ZorvwMsgEndGenomicProcessing::~ZorvwMsgEndGenomicProcessing() = default;

BpProcedure::BpProcedure(const char* name, int kind) : name_(name ? name : ""), kind_(kind) {}
BpProcedure::~BpProcedure() = default;
const std::string& BpProcedure::name() const { return name_; }

ProcedureDataSource::ProcedureDataSource() = default;
ProcedureDataSource::~ProcedureDataSource() = default;

// The host's common blocks: the module only caches their addresses, so each is a distinct block.
namespace {
struct CommonBlock {
  char bytes[64];
};
CommonBlock g_blocks[22];
}  // namespace

#define ZORV_COMMON_BLOCK(fn, index) \
  extern "C" void* fn() { return &g_blocks[index]; }
ZORV_COMMON_BLOCK(pvGetCmnBpr, 0)
ZORV_COMMON_BLOCK(pvGetCmaDic, 1)
ZORV_COMMON_BLOCK(pvGetCmaGlb, 2)
ZORV_COMMON_BLOCK(pvGetCmaMch, 3)
ZORV_COMMON_BLOCK(pvGetCmaObv, 4)
ZORV_COMMON_BLOCK(pvGetCmaSym, 5)
ZORV_COMMON_BLOCK(pvGetCmaSys, 6)
ZORV_COMMON_BLOCK(pvGetCmnDic, 7)
ZORV_COMMON_BLOCK(pvGetCmnDmo, 8)
ZORV_COMMON_BLOCK(pvGetCmnGlb, 9)
ZORV_COMMON_BLOCK(pvGetCmnInc, 10)
ZORV_COMMON_BLOCK(pvGetCmnIo, 11)
ZORV_COMMON_BLOCK(pvGetCmnLoc, 12)
ZORV_COMMON_BLOCK(pvGetCmnMch, 13)
ZORV_COMMON_BLOCK(pvGetCmnMcs, 14)
ZORV_COMMON_BLOCK(pvGetCmnObv, 15)
ZORV_COMMON_BLOCK(pvGetCmnStk, 16)
ZORV_COMMON_BLOCK(pvGetCmnSym, 17)
ZORV_COMMON_BLOCK(pvGetCmnSys, 18)
ZORV_COMMON_BLOCK(pvGetCmnWrk, 19)
ZORV_COMMON_BLOCK(pvGetCmnDtm, 20)
ZORV_COMMON_BLOCK(pvGetCmnBox, 21)
#undef ZORV_COMMON_BLOCK

// ---- client side ----------------------------------------------------------------------------

namespace zorvhost {

void setCommandText(const std::string& text) {
  std::lock_guard<std::mutex> lock(stateMutex());
  state().commandText = text;
}

const std::string& commandText() {
  std::lock_guard<std::mutex> lock(stateMutex());
  return state().commandText;
}

void reportCommandError(const std::string& command, const std::string& text) {
  std::lock_guard<std::mutex> lock(stateMutex());
  state().errors.push_back({command, text});
}

std::vector<CommandError> takeCommandErrors() {
  std::lock_guard<std::mutex> lock(stateMutex());
  std::vector<CommandError> out;
  out.swap(state().errors);
  return out;
}

void attachClient(bool interactive, MessageHandler handler) {
  auto adapter = std::make_unique<ClientAdapter>(interactive, std::move(handler));
  std::lock_guard<std::mutex> lock(stateMutex());
  state().adapter = adapter.get();
  state().retiredAdapters.push_back(std::move(adapter));
}

void detachClient() {
  std::lock_guard<std::mutex> lock(stateMutex());
  state().adapter = nullptr;
}

void setMetadataJson(const std::string& json) {
  std::lock_guard<std::mutex> lock(stateMutex());
  state().metadata = json;
}

void setTempPath(const std::string& folder) {
  std::lock_guard<std::mutex> lock(stateMutex());
  state().tempPath = folder;
}

void setInstallPath(const std::string& folder) {
  std::string p = folder;
  // The module appends file names to this folder as they are, and on Windows the launcher's path
  // goes to cmd.exe: the folder ends in the system's own separator.
  if (!p.empty() && p.back() != '/' && p.back() != '\\') p += zorvhost::platform::folderSeparator();
  std::lock_guard<std::mutex> lock(stateMutex());
  state().install.set(std::move(p));
}

std::string installPath() {
  std::lock_guard<std::mutex> lock(stateMutex());
  return state().install.getPath();
}

// ---- datasets ----

namespace {

// Callers hold stateMutex().
void eraseDataset(State& st, const DatasetEntry* entry) {
  if (st.active == entry) st.active = nullptr;
  auto& ds = st.datasets;
  ds.erase(std::remove_if(ds.begin(), ds.end(), [&](const auto& d) { return d.get() == entry; }),
           ds.end());
}

DatasetEntry* findNamed(State& st, const std::string& name) {
  for (auto& d : st.datasets) {
    if (!d->name().empty() && equalsIgnoreCase(d->name(), name)) return d.get();
  }
  return nullptr;
}

DatasetInfo describe(const State& st, const DatasetEntry& d) {
  DatasetInfo info;
  info.name = d.name();
  info.active = st.active == &d;
  info.cases = d.data().cases;
  info.variables = d.data().variables.size();
  return info;
}

}  // namespace

void openDataset(const std::string& name) {
  std::lock_guard<std::mutex> lock(stateMutex());
  state().datasets.push_back(std::make_unique<DatasetEntry>(name));
}

bool closeDataset(const std::string& name) {
  std::lock_guard<std::mutex> lock(stateMutex());
  State& st = state();
  auto& ds = st.datasets;
  auto it = std::remove_if(ds.begin(), ds.end(), [&](const auto& d) {
    return !d->name().empty() && equalsIgnoreCase(d->name(), name);
  });
  bool closed = it != ds.end();
  for (auto k = it; k != ds.end(); ++k) {
    if (st.active == k->get()) st.active = nullptr;
  }
  ds.erase(it, ds.end());
  return closed;
}

void closeAllDatasets() {
  std::lock_guard<std::mutex> lock(stateMutex());
  state().active = nullptr;
  state().datasets.clear();
}

std::vector<std::string> datasetNames() {
  std::lock_guard<std::mutex> lock(stateMutex());
  std::vector<std::string> names;
  for (auto& d : state().datasets) {
    if (!d->name().empty()) names.push_back(d->name());
  }
  return names;
}

std::vector<DatasetInfo> datasets() {
  std::lock_guard<std::mutex> lock(stateMutex());
  std::vector<DatasetInfo> out;
  for (auto& d : state().datasets) out.push_back(describe(state(), *d));
  return out;
}

void addImportedDataset(DatasetData data) {
  auto entry = std::make_unique<DatasetEntry>(std::string(), std::move(data));
  std::lock_guard<std::mutex> lock(stateMutex());
  State& st = state();
  if (st.active != nullptr && st.active->name().empty()) eraseDataset(st, st.active);
  st.active = entry.get();
  st.datasets.push_back(std::move(entry));
}

bool nameActiveDataset(const std::string& name, std::string& error) {
  if (name.empty()) {
    error = "a dataset name is needed";
    return false;
  }
  for (unsigned char c : name) {
    if (c <= ' ' || c == 0x7F) {
      error = "'" + name + "' is not a dataset name: it holds a blank or a control character";
      return false;
    }
  }
  std::lock_guard<std::mutex> lock(stateMutex());
  State& st = state();
  if (st.active == nullptr) {
    error = "there is no active dataset to name";
    return false;
  }
  // Renaming the active dataset to a spelling of its own name is no move.
  for (;;) {
    DatasetEntry* holder = findNamed(st, name);
    if (holder == nullptr || holder == st.active) break;
    holder->rename(std::string());
    eraseDataset(st, holder);  // unnamed and not active: nothing can reach it any more
  }
  st.active->rename(name);
  return true;
}

bool activateDataset(const std::string& name, std::string& error) {
  std::lock_guard<std::mutex> lock(stateMutex());
  State& st = state();
  DatasetEntry* target = name.empty() ? nullptr : findNamed(st, name);
  if (target == nullptr) {
    error = "no open dataset is named '" + name + "'";
    return false;
  }
  if (st.active != nullptr && st.active != target && st.active->name().empty()) {
    eraseDataset(st, st.active);
  }
  st.active = target;
  return true;
}

bool activeDataset(DatasetInfo& info) {
  std::lock_guard<std::mutex> lock(stateMutex());
  if (state().active == nullptr) return false;
  info = describe(state(), *state().active);
  return true;
}

bool activeDatasetData(DatasetData& data) {
  std::lock_guard<std::mutex> lock(stateMutex());
  if (state().active == nullptr) return false;
  data = state().active->data();
  return true;
}

bool datasetData(const std::string& name, DatasetData& data) {
  std::lock_guard<std::mutex> lock(stateMutex());
  DatasetEntry* d = findNamed(state(), name);
  if (d == nullptr) return false;
  data = d->data();
  return true;
}

}  // namespace zorvhost
