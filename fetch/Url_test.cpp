#include "fetch/Url.h"

#include <gmock/gmock.h>

namespace {

void ExpectParts(const CString& url, DWORD serviceType, const CString& server, WORD port, const CString& object)
{
    UrlParts parts;
    ASSERT_TRUE(SplitUrl(url, &parts)) << testing::PrintToString(url);
    EXPECT_EQ(parts.serviceType, serviceType);
    EXPECT_EQ(parts.server, server);
    EXPECT_EQ(parts.port, port);
    EXPECT_EQ(parts.object, object);
}

void ExpectRefused(const CString& url)
{
    UrlParts parts{7, L"server", L"object", 9};
    EXPECT_FALSE(SplitUrl(url, &parts)) << testing::PrintToString(url);
    EXPECT_EQ(parts.serviceType, 7U);
    EXPECT_EQ(parts.server, L"server");
    EXPECT_EQ(parts.object, L"object");
    EXPECT_EQ(parts.port, 9);
}

TEST(SplitUrl, TakesAReportAddressApart)
{
    ExpectParts(L"http://127.0.0.1:8470/peak/kansai/demand?date=2012-07-05&output=xml", kServiceHttp, L"127.0.0.1",
                8470, L"/peak/kansai/demand?date=2012-07-05&output=xml");
}

TEST(SplitUrl, PortDefaultsToThatOfTheScheme)
{
    ExpectParts(L"http://host.example/x", kServiceHttp, L"host.example", 80, L"/x");
    ExpectParts(L"https://host.example/x", kServiceHttps, L"host.example", 443, L"/x");
    ExpectParts(L"ftp://host.example/x", kServiceFtp, L"host.example", 21, L"/x");
}

TEST(SplitUrl, SchemeIsReadWithoutCase) { ExpectParts(L"HtTpS://h:1/", kServiceHttps, L"h", 1, L"/"); }

TEST(SplitUrl, TakesTheBoundsOfThePortRange)
{
    ExpectParts(L"http://host:1/", kServiceHttp, L"host", 1, L"/");
    ExpectParts(L"http://host:65535/", kServiceHttp, L"host", 65535, L"/");
}

TEST(SplitUrl, KeepsTheBracketsOfAnAddress)
{
    ExpectParts(L"http://[::1]/x", kServiceHttp, L"[::1]", 80, L"/x");
    ExpectParts(L"http://[fe80::A:192.0.2.1]:8470/x", kServiceHttp, L"[fe80::A:192.0.2.1]", 8470, L"/x");
}

TEST(SplitUrl, ObjectIsPathAndQueryWithoutTheFragment)
{
    const std::pair<const wchar_t*, const wchar_t*> objects[] = {
        {L"", L"/"},
        {L"?date=1", L"/?date=1"},
        {L"#c", L"/"},
        {L"/a?b#c?d#e", L"/a?b"},
        {L"/a:b@c?u=http://x:1/", L"/a:b@c?u=http://x:1/"},
    };
    for (const auto& [text, object] : objects) {
        ExpectParts(CString(L"http://host") + text, kServiceHttp, L"host", 80, object);
    }
    ExpectParts(L"http://host:8470", kServiceHttp, L"host", 8470, L"/");
}

// What is refused.

TEST(SplitUrl, RefusesAPortOutsideTheRange)
{
    for (const wchar_t* port :
         {L"", L"0", L"00000", L"65536", L"99999", L"000080", L"4294967376", L"-1", L"+80", L"8a", L"80:80", L"0x50"}) {
        ExpectRefused(CString(L"http://host:") + port + L"/");
    }
}

TEST(SplitUrl, RefusesAnEmptyHost)
{
    for (const wchar_t* text : {L"", L"/", L":80/", L"?x", L"#x", L"[]/", L"[/", L"]/"}) {
        ExpectRefused(CString(L"http://") + text);
    }
}

TEST(SplitUrl, RefusesAHostWithOtherCharacters)
{
    for (const wchar_t* host :
         {L"[::1", L"[::1]x", L"[::1]80", L"[::g]", L"::1", L"[[::1]]", L"user@host", L"user:password@host", L"ho%73t",
          L"ho\\st", L"ho'st", L"ho,st", L"ho*st", L"h\x00F6st", L"\x6771\x4EAC"}) {
        ExpectRefused(CString(L"http://") + host + L"/");
    }
}

TEST(SplitUrl, RefusesAnotherSchemeOrNone)
{
    for (const wchar_t* url : {L"", L"host", L"/path", L"//host/", L"://host/", L"http", L"http:", L"http:/host/",
                               L"http:host", L"htt://host/", L"httpx://host/", L"file://host/x", L"gopher://host/"}) {
        ExpectRefused(url);
    }
}

TEST(SplitUrl, RefusesWhiteSpaceAndControlCharactersAnywhere)
{
    for (const wchar_t* text :
         {L" ", L"\t", L"\r", L"\n", L"\x01", L"\x1F", L"\x7F", L"\x85", L"\xA0", L"\x1680", L"\x2000", L"\x2003",
          L"\x200F", L"\x2028", L"\x202F", L"\x205F", L"\x3000", L"\xFEFF"}) {
        ExpectRefused(text + CString(L"http://host/x"));
        ExpectRefused(CString(L"http://ho") + text + L"st/x");
        ExpectRefused(CString(L"http://host/x") + text + L"y");
        ExpectRefused(CString(L"http://host/x") + text);
    }
    ExpectRefused(CString(L"http://host/x\0y", 15));
}

TEST(SplitUrl, TakesTheCharactersBesideBlanks)
{
    const CString object = L"/!~\xA1\x167F\x1681\x1FFF\x2010\x2027\x2030\x205E\x2060\x2FFF\x3001\xFEFE\xFF00";
    ExpectParts(L"http://host" + object, kServiceHttp, L"host", 80, object);
}

} // namespace
