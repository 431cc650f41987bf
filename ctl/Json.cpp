#include "ctl/Json.h"

#include "ctl/TimeText.h"
#include "platform/Text.h"

namespace ctl {

Json JsonTime(const SYSTEMTIME& time)
{
    if (IsUnknown(time)) {
        return nullptr;
    }
    return platform::EncodeUtf8(platform::FormatText(L"%04d-%02d-%02dT%02d:%02d:%02d", time.wYear, time.wMonth,
                                                     time.wDay, time.wHour, time.wMinute, time.wSecond));
}

void AddJson(CLI::App& verb, bool& isJson)
{
    verb.add_flag("--json", isJson, "Print JSON (docs/amporactl.schema.json)");
}

void WriteJson(const Console& console, const std::string& verb, const Json& content)
{
    Json document = {{"schema", "amporactl." + verb}, {"schemaVersion", kJsonSchemaVersion}};
    document.update(content);
    console.out << document.dump(2) << "\n";
}

} // namespace ctl
