// The host output library's showing side: StatJSONConverter reads a procedure JSON back into
// OutputTable values and hands them to the client's output handler (or to standard output).
#include <rapidjson/document.h>
#include <rapidjson/error/en.h>

#include <cstdio>
#include <exception>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "host/output.h"
#include "host/procedure.h"
#include "output/generator_impl.h"
#include "zorvhost/client.h"
#include "zorvhost/output.h"

namespace keys = zorvhost::json_keys;

namespace zorvhost {
namespace {

using Handler = std::function<void(const OutputTable&)>;

std::mutex& handlerMutex() {
  static std::mutex m;
  return m;
}

Handler& handlerSlot() {
  static Handler* h = new Handler();  // never destroyed: output may come during static teardown
  return *h;
}

Handler currentHandler() {
  std::lock_guard<std::mutex> lock(handlerMutex());
  return handlerSlot();
}

// Reading one table. Each reader returns an empty string when the member is usable, else what is
// wrong with it.
std::string readText(const rapidjson::Value& v, const char* name, std::string& out) {
  if (!v.IsString()) return std::string("\"") + name + "\" is not a text";
  out.assign(v.GetString(), v.GetStringLength());
  return {};
}

std::string readTexts(const rapidjson::Value& v, const char* name, std::vector<std::string>& out) {
  if (!v.IsArray()) return std::string("\"") + name + "\" is not a list of texts";
  for (const auto& item : v.GetArray()) {
    if (!item.IsString()) return std::string("\"") + name + "\" is not a list of texts";
    out.emplace_back(item.GetString(), item.GetStringLength());
  }
  return {};
}

std::string readRequired(const rapidjson::Value& t, const char* name, const rapidjson::Value*& out) {
  const auto it = t.FindMember(name);
  if (it == t.MemberEnd()) return std::string("\"") + name + "\" is missing";
  out = &it->value;
  return {};
}

// Optional members keep the OutputTable's default when absent.
std::string readOptionalBool(const rapidjson::Value& t, const char* name, bool& out) {
  const auto it = t.FindMember(name);
  if (it == t.MemberEnd()) return {};
  if (!it->value.IsBool()) return std::string("\"") + name + "\" is not true or false";
  out = it->value.GetBool();
  return {};
}

std::string readOptionalInt(const rapidjson::Value& t, const char* name, int& out) {
  const auto it = t.FindMember(name);
  if (it == t.MemberEnd()) return {};
  if (!it->value.IsInt()) return std::string("\"") + name + "\" is not a whole number";
  out = it->value.GetInt();
  return {};
}

std::string readTable(const rapidjson::Value& t, OutputTable& out) {
  if (!t.IsObject()) return "it is not an object";
  const rapidjson::Value* v = nullptr;
  std::string problem;
  if (!(problem = readRequired(t, keys::kTitle, v)).empty()) return problem;
  if (!(problem = readText(*v, keys::kTitle, out.title)).empty()) return problem;
  if (!(problem = readOptionalBool(t, keys::kHideTitle, out.hideTitle)).empty()) return problem;
  if (!(problem = readOptionalInt(t, keys::kMinWidth, out.minDataColumnWidth)).empty()) return problem;
  if (!(problem = readOptionalInt(t, keys::kMaxWidth, out.maxDataColumnWidth)).empty()) return problem;

  const auto format = t.FindMember(keys::kDefaultFormat);
  if (format != t.MemberEnd()) {
    if (!format->value.IsObject()) return std::string("\"") + keys::kDefaultFormat + "\" is not an object";
    if (!(problem = readOptionalInt(format->value, keys::kFormatType, out.formatType)).empty()) return problem;
    if (!(problem = readOptionalInt(format->value, keys::kFormatWidth, out.formatWidth)).empty()) return problem;
    if (!(problem = readOptionalInt(format->value, keys::kFormatDecimals, out.formatDecimals)).empty()) {
      return problem;
    }
  }

  const auto rows = t.FindMember(keys::kRowDimension);
  if (rows != t.MemberEnd()) {
    if (!rows->value.IsObject()) return std::string("\"") + keys::kRowDimension + "\" is not an object";
    const auto label = rows->value.FindMember(keys::kLabel);
    if (label != rows->value.MemberEnd()) {
      if (!(problem = readText(label->value, keys::kLabel, out.rowDimensionLabel)).empty()) return problem;
    }
    if (!(problem = readOptionalBool(rows->value, keys::kShowLabel, out.showRowDimensionLabel)).empty()) {
      return problem;
    }
  }

  if (!(problem = readRequired(t, keys::kColumnLabels, v)).empty()) return problem;
  if (!(problem = readTexts(*v, keys::kColumnLabels, out.columnLabels)).empty()) return problem;
  if (!(problem = readRequired(t, keys::kRowLabels, v)).empty()) return problem;
  if (!(problem = readTexts(*v, keys::kRowLabels, out.rowLabels)).empty()) return problem;
  if (!(problem = readRequired(t, keys::kCells, v)).empty()) return problem;
  const std::string cellsProblem = std::string("\"") + keys::kCells + "\" is not a list of rows of texts";
  if (!v->IsArray()) return cellsProblem;
  for (const auto& row : v->GetArray()) {
    out.cells.emplace_back();
    if (!readTexts(row, keys::kCells, out.cells.back()).empty()) return cellsProblem;
  }
  return {};
}

class Delivery {
 public:
  Delivery(BpProcedure* procedure, Handler handler) : handler_(std::move(handler)) {
    if (procedure) command_ = procedure->name();
  }

  // The procedure's name in the JSON names the command when the host procedure gave none.
  void nameCommand(const std::string& procedure) {
    if (command_.empty()) command_ = procedure;
  }

  void fail(const std::string& text) {
    reportCommandError(command_, text);
    if (!handler_) {
      std::fprintf(stderr, "%s\n", text.c_str());
      std::fflush(stderr);
    }
  }

  void deliver(const OutputTable& table) {
    if (!handler_) {
      const std::string text = renderTableText(table) + "\n";
      std::fwrite(text.data(), 1, text.size(), stdout);
      std::fflush(stdout);
      return;
    }
    try {
      handler_(table);
    } catch (const std::exception& e) {
      fail("The output handler failed on table \"" + table.title + "\": " + e.what());
    } catch (...) {
      fail("The output handler failed on table \"" + table.title + "\".");
    }
  }

 private:
  Handler handler_;
  std::string command_;
};

}  // namespace

void setOutputHandler(std::function<void(const OutputTable&)> handler) {
  std::lock_guard<std::mutex> lock(handlerMutex());
  handlerSlot() = std::move(handler);
}

}  // namespace zorvhost

StatJSONConverter::StatJSONConverter(BpProcedure* procedure) : procedure_(procedure) {}
StatJSONConverter::~StatJSONConverter() = default;

void StatJSONConverter::generateOutput(const std::string& procedureJson) {
  // The handler is taken once, so a handler that replaces itself affects the next output only and
  // is never called while the lock is held.
  zorvhost::Delivery delivery(procedure_, zorvhost::currentHandler());
  const std::string cannot = "The output could not be shown: ";

  rapidjson::Document doc;
  doc.Parse(procedureJson.data(), procedureJson.size());
  if (doc.HasParseError()) {
    delivery.fail(cannot + "its JSON is malformed (" + rapidjson::GetParseError_En(doc.GetParseError()) +
                  ") at offset " + std::to_string(doc.GetErrorOffset()) + ".");
    return;
  }
  if (!doc.IsObject()) {
    delivery.fail(cannot + "its JSON is not an object.");
    return;
  }
  std::string procedure;
  const auto name = doc.FindMember(zorvhost::json_keys::kProcedure);
  if (name == doc.MemberEnd() || !name->value.IsString()) {
    delivery.fail(cannot + "it names no procedure.");
    return;
  }
  procedure.assign(name->value.GetString(), name->value.GetStringLength());
  delivery.nameCommand(procedure);

  std::string subtitle;
  const auto sub = doc.FindMember(zorvhost::json_keys::kSubtitle);
  if (sub != doc.MemberEnd()) {
    if (!sub->value.IsString()) {
      delivery.fail(cannot + "its subtitle is not a text.");
      return;
    }
    subtitle.assign(sub->value.GetString(), sub->value.GetStringLength());
  }

  const auto tables = doc.FindMember(zorvhost::json_keys::kTables);
  if (tables == doc.MemberEnd() || !tables->value.IsArray()) {
    delivery.fail(cannot + "it has no list of tables.");
    return;
  }

  // One unreadable table does not hide the others.
  rapidjson::SizeType index = 0;
  for (const auto& t : tables->value.GetArray()) {
    ++index;
    zorvhost::OutputTable table;
    table.procedure = procedure;
    table.subtitle = subtitle;
    const std::string problem = zorvhost::readTable(t, table);
    if (!problem.empty()) {
      delivery.fail("Table " + std::to_string(index) + " of the output could not be shown: " + problem + ".");
      continue;
    }
    delivery.deliver(table);
  }
}
