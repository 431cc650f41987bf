#include "ctl/Json.h"

#include "ctl/TimeText.h"
#include "platform/Text.h"

namespace ctl {

Json JsonTime(const SYSTEMTIME& time)
{
    return IsUnknown(time) ? Json(nullptr) : Json(platform::EncodeUtf8(IsoText(time)));
}

Json JsonRecord(const _AmporaOneData& record)
{
    return {{"start", JsonTime(record.stStart)}, {"end", JsonTime(record.stEnd)}, {"value", record.ullValue}};
}

CLI::Option& AddJson(CLI::App& verb, bool& isJson)
{
    return *verb.add_flag("--json", isJson, "Print JSON (docs/amporactl.schema.json)");
}

void WriteJson(const Console& console, const std::string& verb, const Json& content)
{
    Json document = {{"schema", "amporactl." + verb}, {"schemaVersion", kJsonSchemaVersion}};
    document.update(content);
    console.out << document.dump(2) << "\n";
}

} // namespace ctl
