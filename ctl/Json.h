// JSON output. docs/amporactl.schema.json describes it.
#pragma once

#include "ctl/CommandLine.h"
#include "format/DataFileFormat.h"

#include <nlohmann/json.hpp>

namespace ctl {

// Keeps its members in the order in which they were added.
using Json = nlohmann::ordered_json;

// Of all documents; raised when a member changes its meaning or goes, not when one is added.
inline constexpr int kJsonSchemaVersion = 1;

// "2012-07-02T13:00:05", local wall-clock time; null for an unknown one.
Json JsonTime(const SYSTEMTIME& time);

// {"start": ..., "end": ..., "value": ...}
Json JsonRecord(const _AmporaOneData& record);

// Adds the option --json to a verb that reports; isJson must live as long as the verb.
CLI::Option& AddJson(CLI::App& verb, bool& isJson);

// Writes a verb's document, with the members "schema" (the verb) and "schemaVersion" before those of content, an
// object.
void WriteJson(const Console& console, const std::string& verb, const Json& content);

} // namespace ctl
