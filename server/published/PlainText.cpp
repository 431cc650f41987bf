#include "server/published/PlainText.h"

#include "server/published/PublishedFile.h"

#include <algorithm>
#include <memory>
#include <unicode/bytestream.h>
#include <unicode/normalizer2.h>
#include <unicode/ucnv.h>
#include <unicode/unistr.h>

namespace reportd {
namespace {

// Windows-31J as Windows itself converts it.
constexpr const char* kWindows31J = "ibm-943_P15A-2003";

constexpr char16_t kMark = 0xFEFF;
// To some converters what others call the full-width tilde, which folds to ~.
constexpr std::string_view kWaveDash = "\u301C";

void RequireIcu(UErrorCode status, const char* what)
{
    if (U_FAILURE(status)) {
        throw std::runtime_error(std::string(what) + ": " + u_errorName(status));
    }
}

// Decodes the whole of the bytes. False when they are not text of this encoding.
bool Decode(std::string_view bytes, const char* encoding, icu::UnicodeString& text)
{
    UErrorCode status = U_ZERO_ERROR;
    const icu::LocalUConverterPointer converter(ucnv_open(encoding, &status));
    RequireIcu(status, encoding);
    ucnv_setToUCallBack(converter.getAlias(), UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
    RequireIcu(status, encoding);
    const auto size = static_cast<std::int32_t>(bytes.size());
    char16_t* const buffer = text.getBuffer(size + 1); // never more units than bytes in these encodings
    if (buffer == nullptr) {
        throw std::bad_alloc();
    }
    const std::int32_t length = ucnv_toUChars(converter.getAlias(), buffer, size + 1, bytes.data(), size, &status);
    text.releaseBuffer(U_SUCCESS(status) ? length : 0);
    return U_SUCCESS(status);
}

bool IsForbiddenControl(char16_t unit)
{
    const bool isLayout = unit == u'\t' || unit == u'\r' || unit == u'\n';
    return (unit < 0x20 && !isLayout) || (unit >= 0x7F && unit < 0xA0);
}

std::string WithTildes(std::string_view text)
{
    std::string replaced;
    for (std::size_t dash = text.find(kWaveDash); dash != std::string_view::npos; dash = text.find(kWaveDash)) {
        replaced.append(text.substr(0, dash)).append(1, '~');
        text.remove_prefix(dash + kWaveDash.size());
    }
    return replaced.append(text);
}

bool IsAscii(std::string_view text)
{
    return std::none_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) >= 0x80; });
}

} // namespace

std::string DecodePublished(std::string_view bytes)
{
    // Windows-31J cannot be mistaken for UTF-8: the first character of every heading that we know, after a comma or a
    // line end, begins with a byte from 0x81 to 0x9F there, with which no character of UTF-8 begins.
    icu::UnicodeString text;
    if (!Decode(bytes, "UTF-8", text) && !Decode(bytes, kWindows31J, text)) {
        throw CRefusedFile(Refusal::kNotText, "it is neither Shift_JIS nor UTF-8");
    }
    if (text.startsWith(icu::UnicodeString(kMark))) {
        text.remove(0, 1);
    }
    const char16_t* const units = text.getBuffer();
    if (std::any_of(units, units + text.length(), IsForbiddenControl)) {
        throw CRefusedFile(Refusal::kNotText, "it holds control characters");
    }
    std::string utf8;
    text.toUTF8String(utf8);
    return utf8;
}

std::string FoldCell(std::string_view cell)
{
    std::string folded;
    if (IsAscii(cell)) {
        folded = cell;
    } else {
        UErrorCode status = U_ZERO_ERROR;
        const icu::Normalizer2* const normalizer = icu::Normalizer2::getNFKCInstance(status);
        RequireIcu(status, "NFKC");
        icu::StringByteSink<std::string> sink(&folded, static_cast<std::int32_t>(cell.size()));
        normalizer->normalizeUTF8(0, {cell.data(), static_cast<std::int32_t>(cell.size())}, sink, nullptr, status);
        RequireIcu(status, "NFKC");
        folded = WithTildes(folded);
    }
    std::erase_if(folded, [](char c) { return c == ' ' || c == '\t' || c == '\r'; });
    return folded;
}

} // namespace reportd
