// Golden end-to-end cases: every golden/*.txt is a script of actions ("> " lines), each followed by
// what the module must make of it, from the commands' errors and tables to the client's messages
// and the post-job syntax. golden/README.md describes the format and its actions;
// GENOSTAT_UPDATE_GOLDEN=1 rewrites the files from what the module does now.
#include <algorithm>
#include <cstdlib>
#include <regex>
#include <sstream>

#include "module_test_support.h"
#include "zorvhost/output.h"

namespace mt {
namespace {

namespace fs = std::filesystem;

int64_t pinnedClock() { return 1731721138; }

std::vector<std::string> caseNames() {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(fs::u8path(GENOSTAT_GOLDEN_DIR))) {
    const std::string name = entry.path().stem().u8string();
#ifdef _WIN32
    if (name.find(".posix") != std::string::npos) continue;
#endif
    if (entry.path().extension() == ".txt") names.push_back(name);
  }
  std::sort(names.begin(), names.end());
  return names;
}

void replaceAll(std::string& text, const std::string& from, const std::string& to) {
  for (size_t at = 0; !from.empty() && (at = text.find(from, at)) != std::string::npos; at += to.size()) {
    text.replace(at, from.size(), to);
  }
}

// The lines of `text`; with `last`, the empty one after a final line feed too.
Texts lines(const std::string& text, bool last = false) {
  Texts out;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) out.push_back(line);
  if (last && !text.empty() && text.back() == '\n') out.push_back("");
  return out;
}

std::string joined(const Texts& texts, const std::string& quote) {
  std::string out;
  for (const std::string& t : texts) out += (out.empty() ? "" : " | ") + quote + t + quote;
  return out;
}

class GoldenTest : public RunTest, public ::testing::WithParamInterface<std::string> {
 protected:
  void SetUp() override {
    RunTest::SetUp();
    previousClock_ = genostat::platform::setClock(&pinnedClock);
    zorvhost::setOutputHandler([this](const zorvhost::OutputTable& table) { tables_.push_back(table); });
#ifndef _WIN32
    ::setenv("GENOSTAT_TEST_MARK", "grüße 日本", 1);
#endif
    vars_ = {{"$TEMP", tempDir_}, {"$INSTALL", installDir_}, {"$DIR", scratch_.path()}};
    // Each folder as the test names it, as the host hands it on, and inside a JSON text.
    auto folders = vars_;
    folders.push_back({"$CWD", fs::current_path().generic_u8string()});
    for (const auto& [var, path] : folders) {
      std::string json = hostPath(path);
      replaceAll(json, "\\", "\\\\");
      for (const std::string& form : {path, hostPath(path), json}) shown_.push_back({form, var});
    }
    std::sort(shown_.begin(), shown_.end(),
              [](const auto& a, const auto& b) { return a.first.size() > b.first.size(); });
  }
  void TearDown() override {
    genostat::platform::setClock(previousClock_);
    zorvhost::setOutputHandler(nullptr);
  }

  std::string expand(std::string text) const {
    for (const auto& [var, path] : vars_) replaceAll(text, var, path);
    return text;
  }
  fs::path local(const std::string& name) const {
    const fs::path path = fs::u8path(expand(name));
    return path.is_absolute() ? path : fs::u8path(scratch_.path()) / path;
  }
  void emit(std::string line) {
    for (const auto& [form, var] : shown_) replaceAll(line, form, var);
    for (const std::string var : {"$TEMP", "$INSTALL", "$DIR", "$CWD"}) replaceAll(line, var + "\\", var + "/");
    std::string out;
    for (const char c : line) {
      out += static_cast<unsigned char>(c) >= 0x20 ? std::string(1, c)
             : c == '\r'                           ? "\\r"
             : c == '\t'                           ? "\\t"
                                                   : "\\x" + std::to_string(c);
    }
    if (!out.empty() && out.back() == ' ') out += "\xc2\xb6";
    transcript_ += out + "\n";
  }

  void act(const std::string& verb, const std::string& rest) {
    if (verb == "file") {
      const size_t blank = rest.find(' ');
      const fs::path path = local(rest.substr(0, blank));
      std::string text = blank == std::string::npos ? "" : expand(rest.substr(blank + 1));
      const bool json = path.extension() == ".json";
      const std::pair<const char*, const char*> escapes[] = {
          {"\\n", "\n"}, {"\\r", "\r"}, {"\\t", "\t"}, {"\\\\", "\\"}};
      for (const auto& [escape, c] : escapes) replaceAll(text, json ? "" : escape, c);
      fs::create_directories(path.parent_path());
      std::ofstream(path, std::ios::binary) << text;
    } else if (verb == "run") {
      run(expand(rest));
    } else if (verb == "cancel") {
      if (rest == hanging_) {
        fs::remove(fs::u8path(scratch_.file("ready")));
        hanging_.clear();
      }
      emit(std::string("= ") + (cancelGenoJob(manager_.get(), rest.c_str()) ? "true" : "false"));
    } else if (verb == "cancelall") {
      manager_->cancellAllJobsPending();
    } else if (verb == "shutdown") {
      manager_.reset();
    } else if (verb == "replay") {
      std::string syntax;
      for (const Recorded& end : client_.ends()) syntax = end.jobName == rest ? end.message : syntax;
      std::string command;  // from its "GENOSTAT" line to the line that ends in a period
      for (const std::string& line : lines(syntax)) {
        command = line == "GENOSTAT" ? line : command.empty() ? "" : command + "\n" + line;
        if (command.empty() || line.empty() || line.back() != '.') continue;
        run(command);
        command.clear();
      }
    } else if (verb == "dataset") {
      if (rest[0] == '-')
        zorvhost::closeDataset(rest.substr(1));
      else
        zorvhost::openDataset(rest);
    } else if (verb == "metadata") {
      zorvhost::setMetadataJson(rest);
    } else if (verb == "client") {
      if (rest == "none")
        zorvhost::detachClient();
      else
        client_.attach(rest != "batch");
      client_.onPost([rest](const Recorded& m) {
        if (rest == "failing" || (rest == "failstart" && m.started)) throw std::runtime_error("the client is gone");
      });
    } else if (verb == "install") {
      fs::remove_all(fs::u8path(installDir_));
      install(installDir_,
              rest == "missing"  ? Launcher::Missing
              : rest == "noexec" ? Launcher::NotExecutable
                                 : Launcher::Runs,
              rest != "fallback");
      if (rest == "fallback") fs::remove_all(fs::u8path(installDir_ + "/scripts"));
    } else if (verb == "tempfolder") {
      zorvhost::setTempPath(hostPath(expand(rest)));
    } else if (verb == "temp") {
      Texts names;
      for (const auto& entry : fs::directory_iterator(fs::u8path(tempDir_)))
        names.push_back(entry.path().filename().u8string());
      std::sort(names.begin(), names.end());
      emit("  temp: " + (names.empty() ? "(empty)" : joined(names, "")));
    } else if (verb == "show") {
      for (const std::string& line : lines(readAll(local(rest).u8string()))) emit("  " + line);
    } else if (verb == "gone") {
      std::vector<int> pids{launcher_};
      std::istringstream in(readAll(local(rest).u8string()));
      for (int pid = 0; in >> pid;) pids.push_back(pid);
      int running = 0;
      for (int pid : pids) running += eventually([pid] { return processGone(pid); }, 5.0) ? 0 : 1;
      emit("  " + std::to_string(pids.size()) + " processes, " + std::to_string(running) + " still running");
    } else {
      ADD_FAILURE() << "unknown action: " << verb;
    }
  }

  void run(const std::string& command) {
    tables_.clear();
    for (const std::string& error : runCommand(command)) emit("! " + error);
    for (const zorvhost::OutputTable& t : tables_) {
      std::ostringstream frame;  // how the table is drawn, shown when it changes
      frame << "  (" << t.procedure << " '" << t.subtitle << (t.hideTitle ? "', title hidden" : "'") << ", widths "
            << t.minDataColumnWidth << "-" << t.maxDataColumnWidth << ", format " << t.formatType << " "
            << t.formatWidth << "." << t.formatDecimals << ", row heading '" << t.rowDimensionLabel
            << (t.showRowDimensionLabel ? "' shown)" : "' hidden)");
      if (frame.str() != lastFrame_) emit(lastFrame_ = frame.str());
      std::string table = "  [" + t.title + "] " + joined(t.columnLabels, "'");
      for (size_t row = 0; row < std::max(t.rowLabels.size(), t.cells.size()); ++row) {
        table += "; " + (row < t.rowLabels.size() ? t.rowLabels[row] : "?") + ": " +
                 (row < t.cells.size() ? joined(t.cells[row], "") : "");
      }
      emit(table);
    }
  }

  // Waits for the worker to settle, then shows the messages that came meanwhile.
  void settle() {
    const std::string ready = scratch_.file("ready");
    ASSERT_TRUE(eventually([&] { return exists(ready) || !manager_ || Peer::idle(*manager_); }, 60.0))
        << "the worker never settled";
    const std::vector<Recorded> all = client_.messages();
    if (exists(ready) && hanging_.empty()) {
      for (const Recorded& m : all) hanging_ = m.started ? m.jobName : hanging_;
      launcher_ = Peer::processId(*manager_);
    }
    for (; shownMessages_ < all.size(); ++shownMessages_) {
      const Recorded& m = all[shownMessages_];
      if (m.id == kZorvwMsgStartGenomicProcessingId) {
        emit(std::string(m.started ? "< started '" : "< queued '") + m.jobName + "'");
        continue;
      }
      emit("< ended '" + m.jobName + "' csv=" + m.csvFilePath + " workbook=" + std::to_string(m.workbookId) +
           " paragraph=" + std::to_string(m.paragraphId));
      const Texts syntax = lines(m.message, true);
      size_t same = 0;
      for (size_t i = 0; i <= syntax.size(); ++i) {
        if (i < syntax.size() && i < lastSyntax_.size() && syntax[i] == lastSyntax_[i]) {
          ++same;
          continue;
        }
        if (same >= 8) emit("  | (as before: " + std::to_string(same) + " lines)");
        for (size_t j = i - same; same < 8 && j < i; ++j) emit("  |" + syntax[j]);
        same = 0;
        if (i < syntax.size()) emit("  |" + syntax[i]);
      }
      if (!syntax.empty()) lastSyntax_ = syntax;
    }
  }

  genostat::platform::ClockFunction previousClock_ = nullptr;
  std::vector<std::pair<std::string, std::string>> vars_;
  std::vector<std::pair<std::string, std::string>> shown_;
  std::vector<zorvhost::OutputTable> tables_;
  std::string transcript_;
  std::string hanging_;
  int launcher_ = -1;
  size_t shownMessages_ = 0;
  Texts lastSyntax_;
  std::string lastFrame_;
};

TEST_P(GoldenTest, Transcript) {
  const fs::path file = fs::u8path(GENOSTAT_GOLDEN_DIR) / fs::u8path(GetParam() + ".txt");
  const std::string expected = readAll(file.u8string());
  for (const std::string& line : lines(expected)) {
    if (line.empty() || line[0] == '#' || line.rfind("> ", 0) == 0) transcript_ += line + "\n";
    if (line.rfind("> ", 0) != 0) continue;
    const size_t blank = line.find(' ', 2);
    const std::string verb = line.substr(2, blank - 2);
    const std::string rest = blank == std::string::npos ? "" : line.substr(blank + 1);
    std::smatch range;
    const bool ranged = std::regex_search(rest, range, std::regex(R"(\{(\d+)\.\.(\d+)\})"));
    for (int n = ranged ? std::stoi(range[1]) : 0; n <= (ranged ? std::stoi(range[2]) : 0); ++n) {
      std::string each = rest;
      replaceAll(each, ranged ? range[0].str() : "", std::to_string(n));
      if (ranged && (verb == "run" || verb == "replay")) emit("  -- " + std::to_string(n));
      act(verb, each);
      settle();
    }
    if (HasFatalFailure()) break;
  }
  if (std::getenv("GENOSTAT_UPDATE_GOLDEN") != nullptr) {
    std::ofstream(file, std::ios::binary) << transcript_;
    return;
  }
  EXPECT_EQ(expected, transcript_);
}

INSTANTIATE_TEST_SUITE_P(Golden, GoldenTest, ::testing::ValuesIn(caseNames()), [](const auto& test) {
  std::string name = test.param;
  std::replace(name.begin(), name.end(), '.', '_');
  return name;
});

}  // namespace
}  // namespace mt
