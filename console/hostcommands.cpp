#include "hostcommands.h"

#include <utility>

#include "host/parser.h"
#include "host/tokens.h"
#include "zorvhost/client.h"
#include "zorvhost/commands.h"
#include "zorvhost/stats.h"
#include "datacommands.h"
#include "qcview.h"

namespace zorv {

namespace {

const char* const kRun[] = {"GET DATA", "DATASET NAME", "DATASET ACTIVATE", "SET", "PRESERVE", "RESTORE",
                            "CACHE", "EXECUTE", "LIST", "DISPLAY DICTIONARY", "SAVE TRANSLATE"};

bool literalOf(const CommandSpec& spec, const char* sub, std::string& value) {
  SubComObj* s = spec.getSubComObj(sub);
  if (s == nullptr || s->getValueObj() == nullptr) return false;
  return s->getValueObj()->getLiteral(value);
}

void refuse(const std::string& command, const std::string& text) { zorvhost::reportCommandError(command, text); }

}  // namespace

bool HostCommands::knows(const std::string& name) {
  for (const char* n : kRun) {
    if (name == n) return true;
  }
  return isStatistics(name);
}

bool HostCommands::isStatistics(const std::string& name) { return zorvhost::stats::isProcedure(name); }

void HostCommands::statistics(const std::string& name, const CommandSpec& spec) {
  zorvhost::DatasetData data;
  if (!zorvhost::activeDatasetData(data)) {
    refuse(name, "there is no active dataset to analyse (GET DATA or a job's import makes one)");
    return;
  }
  std::vector<zorvhost::stats::Item> items;
  std::string error;
  if (!zorvhost::stats::runProcedure(name, spec, data, items, error)) {
    refuse(name, error);
    return;
  }
  for (const auto& item : items) {
    switch (item.kind) {
      case zorvhost::stats::Item::Kind::Table:
        sink_.table(item.table);
        break;
      case zorvhost::stats::Item::Kind::Chart:
        sink_.chart(name, item.title, item.text);
        break;
      case zorvhost::stats::Item::Kind::Note:
        sink_.line(item.text);
        break;
    }
  }
}

void HostCommands::run(const std::string& name, const std::string& text) {
  const CommandDescriptor* found = zorvhost::findCommandDescriptor(name);
  if (found == nullptr || !knows(name)) {
    refuse(name, "not a command this console runs");
    return;
  }
  CommandDescriptor descriptor = *found;
  zorvhost::setCommandText(text);
  ZORV_TokenSequence tokens(true);
  CommandSpec spec;
  UniversalParser parser(&tokens, &spec, &descriptor);
  if (parser.getCommandSpecifications() != 0) return;  // the parser has reported the fault

  if (isStatistics(name)) {
    statistics(name, spec);
  } else if (name == "LIST") {
    listCases(spec, sink_);
  } else if (name == "DISPLAY DICTIONARY") {
    displayDictionary(sink_);
  } else if (name == "SAVE TRANSLATE") {
    saveTranslate(spec, sink_);
  } else if (name == "GET DATA") {
    getData(spec);
  } else if (name == "DATASET NAME" || name == "DATASET ACTIVATE") {
    std::vector<std::string> names;
    spec.getLeadingNames(names);
    std::string target = names.empty() ? std::string() : names.front();
    std::string error;
    bool ok = name == "DATASET NAME" ? zorvhost::nameActiveDataset(target, error)
                                     : zorvhost::activateDataset(target, error);
    zorvhost::DatasetInfo info;
    if (!ok) {
      refuse(name, error);
    } else if (zorvhost::activeDataset(info)) {
      sink_.dataset(info);
      zorvhost::DatasetData data;
      // Naming is where a job's import becomes its dataset: the moment to show its samples.
      if (name == "DATASET NAME" && zorvhost::activeDatasetData(data) && isQcDataset(data)) {
        sink_.qcDataset(info.name, data);
      }
    }
  } else if (name == "SET") {
    SubComObj* decimal = spec.getSubComObj("DECIMAL");
    std::string value;
    if (decimal != nullptr && decimal->getValueObj() != nullptr &&
        decimal->getValueObj()->getUpStringGeneric(value)) {
      settings_.decimal = value == "COMMA" ? ',' : '.';
    }
  } else if (name == "PRESERVE") {
    preserved_.push_back(settings_);
  } else if (name == "RESTORE") {
    if (preserved_.empty()) {
      refuse(name, "there are no preserved settings to restore (no PRESERVE before it)");
    } else {
      settings_ = preserved_.back();
      preserved_.pop_back();
    }
  }
  // CACHE and EXECUTE: this console applies every command at once; there is no pending data pass.
}

void HostCommands::getData(const CommandSpec& spec) {
  const std::string name = "GET DATA";
  zorvhost::TextImportSettings settings;
  settings.decimal = settings_.decimal;
  std::string file;
  if (!literalOf(spec, "FILE", file) || file.empty()) {
    refuse(name, "/FILE names no file");
    return;
  }
  literalOf(spec, "ENCODING", settings.encoding);
  literalOf(spec, "DELIMITERS", settings.delimiters);
  literalOf(spec, "QUALIFIER", settings.qualifier);
  if (SubComObj* arrangement = spec.getSubComObj("ARRANGEMENT")) {
    std::string value;
    if (arrangement->getValueObj() != nullptr && arrangement->getValueObj()->getUpStringGeneric(value) &&
        value != "DELIMITED") {
      refuse(name, "ARRANGEMENT=" + value + " is not supported; this console reads delimited text");
      return;
    }
  }
  if (SubComObj* first = spec.getSubComObj("FIRSTCASE")) {
    if (first->getValueObj() != nullptr) first->getValueObj()->getIntegerValue(settings.firstCase);
  }
  if (SubComObj* typeMin = spec.getSubComObj("DATATYPEMIN")) {
    if (ParamObj* percentage = typeMin->getParamObj("PERCENTAGE")) {
      percentage->getNumberValue(settings.typeMinPercentage);
    }
  }
  if (SubComObj* variables = spec.getSubComObj("VARIABLES")) {
    std::vector<std::pair<std::string, std::string>> pairs;
    if (variables->getValueObj() != nullptr) variables->getValueObj()->getNamePairs(pairs);
    for (auto& p : pairs) settings.variables.push_back({p.first, p.second});
  }

  zorvhost::DatasetData data;
  std::vector<std::string> notes;
  std::string error;
  if (!zorvhost::importDelimitedFile(file, settings, data, notes, error)) {
    refuse(name, error);
    return;
  }
  for (const auto& note : notes) sink_.line(name + ": " + note);
  zorvhost::addImportedDataset(std::move(data));
  zorvhost::DatasetInfo info;
  if (zorvhost::activeDataset(info)) sink_.dataset(info);
}

}  // namespace zorv
