#include "events.h"

#include <cmath>

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace zorv {

namespace {

// Copies `in`, replacing each byte that does not belong to a well-formed UTF-8 sequence by U+FFFD.
std::string validUtf8(const std::string& in) {
  std::string out;
  out.reserve(in.size());
  const auto* s = reinterpret_cast<const unsigned char*>(in.data());
  size_t n = in.size(), i = 0;
  while (i < n) {
    unsigned char c = s[i];
    size_t len = 0;
    unsigned long cp = 0;
    if (c < 0x80) {
      len = 1;
      cp = c;
    } else if (c >= 0xC2 && c <= 0xDF) {
      len = 2;
      cp = c & 0x1F;
    } else if (c >= 0xE0 && c <= 0xEF) {
      len = 3;
      cp = c & 0x0F;
    } else if (c >= 0xF0 && c <= 0xF4) {
      len = 4;
      cp = c & 0x07;
    }
    bool ok = len > 0 && i + len <= n;
    for (size_t k = 1; ok && k < len; ++k) {
      if ((s[i + k] & 0xC0) != 0x80) ok = false;
      cp = (cp << 6) | (s[i + k] & 0x3F);
    }
    if (ok && ((len == 3 && cp < 0x800) || (len == 4 && cp < 0x10000) || cp > 0x10FFFF ||
               (cp >= 0xD800 && cp <= 0xDFFF))) {
      ok = false;
    }
    if (ok) {
      out.append(in, i, len);
      i += len;
    } else {
      out += "\xEF\xBF\xBD";
      ++i;
    }
  }
  return out;
}

using Writer = rapidjson::Writer<rapidjson::StringBuffer>;

void key(Writer& w, const char* k) { w.Key(k); }

void text(Writer& w, const std::string& value) {
  std::string v = validUtf8(value);
  w.String(v.c_str(), static_cast<rapidjson::SizeType>(v.size()));
}

}  // namespace

std::string errorEvent(const std::string& command, const std::string& message) {
  rapidjson::StringBuffer buf;
  Writer w(buf);
  w.StartObject();
  key(w, "event");
  w.String("error");
  key(w, "command");
  text(w, command);
  key(w, "text");
  text(w, message);
  w.EndObject();
  return buf.GetString();
}

std::string jobStartEvent(const std::string& job, bool started) {
  rapidjson::StringBuffer buf;
  Writer w(buf);
  w.StartObject();
  key(w, "event");
  w.String("job_start");
  key(w, "job");
  text(w, job);
  key(w, "started");
  w.Bool(started);
  w.EndObject();
  return buf.GetString();
}

std::string jobEndEvent(const std::string& job, const std::string& syntax, const std::string& csv,
                        int32_t workbook, int32_t paragraph) {
  rapidjson::StringBuffer buf;
  Writer w(buf);
  w.StartObject();
  key(w, "event");
  w.String("job_end");
  key(w, "job");
  text(w, job);
  key(w, "syntax");
  text(w, syntax);
  key(w, "csv");
  text(w, csv);
  key(w, "workbook");
  w.Int(workbook);
  key(w, "paragraph");
  w.Int(paragraph);
  w.EndObject();
  return buf.GetString();
}

std::string datasetValuesEvent(const std::string& name, const zorvhost::DatasetData& data) {
  rapidjson::StringBuffer buf;
  Writer w(buf);
  w.StartObject();
  key(w, "event");
  w.String("dataset_values");
  key(w, "name");
  text(w, name);
  key(w, "variables");
  w.StartArray();
  for (const auto& v : data.variables) text(w, v.name);
  w.EndArray();
  key(w, "cases");
  w.StartArray();
  for (size_t row = 0; row < data.cases; ++row) {
    w.StartArray();
    for (const auto& v : data.variables) {
      if (v.type == zorvhost::Variable::Type::String) {
        text(w, v.strings[row]);
      } else if (std::isfinite(v.numbers[row])) {
        w.Double(v.numbers[row]);
      } else {
        w.Null();
      }
    }
    w.EndArray();
  }
  w.EndArray();
  w.EndObject();
  return buf.GetString();
}

std::string chartEvent(const std::string& procedure, const std::string& title) {
  rapidjson::StringBuffer buf;
  Writer w(buf);
  w.StartObject();
  key(w, "event");
  w.String("chart");
  key(w, "procedure");
  text(w, procedure);
  key(w, "title");
  text(w, title);
  w.EndObject();
  return buf.GetString();
}

std::string datasetEvent(const std::string& name, size_t cases, size_t variables) {
  rapidjson::StringBuffer buf;
  Writer w(buf);
  w.StartObject();
  key(w, "event");
  w.String("dataset");
  key(w, "name");
  text(w, name);
  key(w, "cases");
  w.Uint64(cases);
  key(w, "variables");
  w.Uint64(variables);
  w.EndObject();
  return buf.GetString();
}

EventLog::~EventLog() {
  if (out_ != nullptr) std::fclose(out_);
}

void EventLog::write(const std::string& line) {
  if (out_ == nullptr) return;
  std::fwrite(line.data(), 1, line.size(), out_);
  std::fputc('\n', out_);
  std::fflush(out_);
}

}  // namespace zorv
