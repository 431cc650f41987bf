// The resources of the programs as they have been built.
#include "platform/Text.h"
#include "platform/Types.h"

#include <cstring>
#include <filesystem>
#include <gmock/gmock.h>
#include <vector>
#include <winver.h>

namespace platform {
namespace {

using ::testing::HasSubstr;

using ::testing::Not;

constexpr char kCommonControls[] = "name=\"Microsoft.Windows.Common-Controls\" version=\"6.0.0.0\"";
constexpr char kUtf8[] = ">UTF-8</activeCodePage>";

// What ships, and what its resources have to say.
struct Program {
    const wchar_t* fileName;
    const wchar_t* internalName;
    DWORD fileType;
    const char* ofItsKind;      // in the manifest of such a program; null: it has no manifest
    const char* ofTheOtherKind; // not in it
};
constexpr Program kPrograms[] = {{L"amporasrv.exe", L"AmporaSrv", VFT_APP, kCommonControls, kUtf8},
                                 {L"amporactl.exe", L"amporactl", VFT_APP, kUtf8, kCommonControls},
                                 {L"ampora-reportd.exe", L"ampora-reportd", VFT_APP, kUtf8, kCommonControls},
                                 {L"ampora.dll", L"ampora", VFT_DLL, nullptr, nullptr}};

// AMPORA_PROGRAM_FOLDER: where they lie; AMPORA_VERSION: the project's version.
CString PathOf(const Program& program)
{
    return (std::filesystem::absolute(AMPORA_PROGRAM_FOLDER) / program.fileName).wstring();
}

// The bytes of one resource of a program, of which it has one of this number; empty when it has none.
std::vector<BYTE> ResourceBytes(const Program& of, const wchar_t* type, WORD number)
{
    const HMODULE program = ::LoadLibraryExW(PathOf(of).c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE);
    EXPECT_NE(program, nullptr) << ::GetLastError();
    std::vector<BYTE> bytes;
    if (const HRSRC resource = ::FindResourceW(program, MAKEINTRESOURCEW(number), type)) {
        const auto* const first = static_cast<const BYTE*>(::LockResource(::LoadResource(program, resource)));
        bytes.assign(first, first + ::SizeofResource(program, resource));
    }
    ::FreeLibrary(program);
    return bytes;
}

// Numbers and text as they lie in a dialog's template: without gaps up to the font's name.
class CTemplateBytes {
public:
    CTemplateBytes& Byte(BYTE number) { return Append(&number, sizeof(number)); }
    CTemplateBytes& Word(WORD number) { return Append(&number, sizeof(number)); }
    CTemplateBytes& DoubleWord(DWORD number) { return Append(&number, sizeof(number)); }
    CTemplateBytes& Text(const CString& text) { return Append(text.c_str(), (text.size() + 1) * sizeof(wchar_t)); }

    std::vector<BYTE> m_bytes;

private:
    CTemplateBytes& Append(const void* source, std::size_t size)
    {
        const auto* const first = static_cast<const BYTE*>(source);
        m_bytes.insert(m_bytes.end(), first, first + size);
        return *this;
    }
};

TEST(Resources, HoldTheHiddenDialogsTemplate)
{
    CTemplateBytes expected;
    expected.Word(1).Word(0xFFFF).DoubleWord(0); // extended; no help
    expected.DoubleWord(0x08080000);             // WS_EX_NOACTIVATE, WS_EX_LAYERED
    expected.DoubleWord(0x800000C0);             // WS_POPUP, DS_MODALFRAME, DS_SETFONT
    expected.Word(0);                            // controls
    expected.Word(0).Word(0).Word(7).Word(9);    // position, size
    expected.Word(0).Text(L"Ampora").Text(L"");  // no menu; class; no caption
    expected.Word(9).Word(0).Byte(0).Byte(1);    // points, weight, not italic, default character set
    expected.Text(L"MS UI Gothic");

    std::vector<BYTE> found = ResourceBytes(kPrograms[0], MAKEINTRESOURCEW(5), 102);
    ASSERT_GE(found.size(), expected.m_bytes.size());
    ASSERT_LT(found.size(), expected.m_bytes.size() + sizeof(DWORD)) << "more than the template filled up to a DWORD";
    found.resize(expected.m_bytes.size());
    EXPECT_EQ(found, expected.m_bytes);
}

class ProgramResources : public ::testing::TestWithParam<Program> {};
INSTANTIATE_TEST_SUITE_P(All, ProgramResources, ::testing::ValuesIn(kPrograms));

TEST_P(ProgramResources, HoldTheProjectsVersion)
{
    const CString path = PathOf(GetParam());
    DWORD unused = 0;
    std::vector<BYTE> version(::GetFileVersionInfoSizeW(path.c_str(), &unused));
    ASSERT_FALSE(version.empty());
    ASSERT_TRUE(::GetFileVersionInfoW(path.c_str(), 0, static_cast<DWORD>(version.size()), version.data()));
    const auto text = [&version](const CString& name) -> CString {
        void* value = nullptr;
        UINT length = 0;
        const CString block = L"\\StringFileInfo\\040904B0\\" + name;
        return ::VerQueryValueW(version.data(), block.c_str(), &value, &length) && length > 0
                   ? static_cast<const wchar_t*>(value)
                   : L"(none)";
    };
    const CString projectVersion = DecodeUtf8(AMPORA_VERSION);
    EXPECT_EQ(text(L"FileVersion"), projectVersion);
    EXPECT_EQ(text(L"ProductVersion"), projectVersion);
    EXPECT_EQ(text(L"ProductName"), L"AmporaSrv");
    EXPECT_EQ(text(L"InternalName"), GetParam().internalName);
    EXPECT_EQ(text(L"OriginalFilename"), GetParam().fileName);
    EXPECT_NE(text(L"FileDescription"), L"(none)");
    EXPECT_EQ(text(L"CompanyName"), L"(none)");

    void* value = nullptr;
    UINT length = 0;
    ASSERT_TRUE(::VerQueryValueW(version.data(), L"\\", &value, &length));
    ASSERT_EQ(length, sizeof(VS_FIXEDFILEINFO));
    VS_FIXEDFILEINFO fixed = {};
    std::memcpy(&fixed, value, sizeof(fixed));
    const CString numbers = std::to_wstring(HIWORD(fixed.dwFileVersionMS)) + L"." +
                            std::to_wstring(LOWORD(fixed.dwFileVersionMS)) + L"." +
                            std::to_wstring(HIWORD(fixed.dwFileVersionLS));
    EXPECT_EQ(numbers, projectVersion);
    EXPECT_EQ(LOWORD(fixed.dwFileVersionLS), 0);
    EXPECT_EQ(fixed.dwProductVersionMS, fixed.dwFileVersionMS);
    EXPECT_EQ(fixed.dwProductVersionLS, fixed.dwFileVersionLS);
    EXPECT_EQ(fixed.dwFileType, GetParam().fileType);
}

TEST_P(ProgramResources, AskForNoRightsAndTheModernSystem)
{
    const std::vector<BYTE> bytes = ResourceBytes(GetParam(), MAKEINTRESOURCEW(24), 1);
    const std::string manifest(bytes.begin(), bytes.end());
    if (!GetParam().ofItsKind) {
        EXPECT_EQ(manifest, "");
        return;
    }
    EXPECT_THAT(manifest, HasSubstr("<requestedExecutionLevel level=\"asInvoker\" uiAccess=\"false\"/>"));
    EXPECT_THAT(manifest, HasSubstr("<supportedOS Id=\"{8e0f7a12-bfb3-4fe8-b9a5-48fd50a15a9a}\"/>")); // Windows 10, 11
    EXPECT_THAT(manifest, HasSubstr(">true</longPathAware>"));
    EXPECT_THAT(manifest, HasSubstr(GetParam().ofItsKind));
    EXPECT_THAT(manifest, Not(HasSubstr(GetParam().ofTheOtherKind)));
}

} // namespace
} // namespace platform
