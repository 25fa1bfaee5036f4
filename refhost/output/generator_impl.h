// The state behind a StatJSONGenerator: the procedure JSON being built, shared by the generator and
// the tables that add themselves to it.
#pragma once

#include <rapidjson/document.h>

#include <string>

#include "host/output.h"

// Names of the procedure JSON's members; the converter reads what the tables write.
namespace zorvhost::json_keys {
inline constexpr const char* kProcedure = "procedure";
inline constexpr const char* kSubtitle = "subtitle";
inline constexpr const char* kTables = "tables";
inline constexpr const char* kTitle = "title";
inline constexpr const char* kHideTitle = "hideTitle";
inline constexpr const char* kMinWidth = "minDataColumnWidth";
inline constexpr const char* kMaxWidth = "maxDataColumnWidth";
inline constexpr const char* kDefaultFormat = "defaultFormat";
inline constexpr const char* kFormatType = "type";
inline constexpr const char* kFormatWidth = "width";
inline constexpr const char* kFormatDecimals = "decimals";
inline constexpr const char* kRowDimension = "rowDimension";
inline constexpr const char* kLabel = "label";
inline constexpr const char* kShowLabel = "showLabel";
inline constexpr const char* kColumnLabels = "columnLabels";
inline constexpr const char* kRowLabels = "rowLabels";
inline constexpr const char* kCells = "cells";
}  // namespace zorvhost::json_keys

struct StatJSONGenerator::Impl {
  std::string procedureName;
  std::string subtitle;
  StatJSONConverter* converter = nullptr;
  const void* context = nullptr;
  // The "tables" array; its allocator owns every value the tables add.
  rapidjson::Document tables{rapidjson::kArrayType};
};
