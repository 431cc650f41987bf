#include "platform/contract/DomFixture.h"
#include "platform/Dom.h"
#include "testing/ScratchFolder.h"

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <gtest/gtest.h>
#include <libxml/xmlmemory.h>

namespace platform {
namespace {

using contract::Repeated;

class LinuxDom : public testing::Test {
protected:
    LinuxDom() { EXPECT_EQ(CreateDomDocument(&m_document), S_OK); }

    bool Loads(const CString& xml)
    {
        bool loaded = false;
        m_status = LoadDomText(m_document, xml, &loaded);
        return loaded;
    }
    DomElementPtr Root()
    {
        DomElementPtr element;
        GetDomDocumentElement(m_document, &element);
        return element;
    }

    DomDocumentPtr m_document;
    HRESULT m_status = S_OK;
};

// Elements inside a root, each with a name of its own.
CString DifferentNames(unsigned count)
{
    CString xml = L"<r>";
    for (unsigned i = 0; i < count; ++i) {
        xml += L"<a" + std::to_wstring(i) + L"/>";
    }
    return xml + L"</r>";
}

double ProcessorSeconds() { return static_cast<double>(std::clock()) / CLOCKS_PER_SEC; }

unsigned g_allocationsLeft = 0; // of the parser, until the failing ones; 0: none fails

bool IsMemoryShort() { return g_allocationsLeft == 1 || (g_allocationsLeft != 0 && --g_allocationsLeft == 1); }

// While it lives, the nth allocation of the parser fails, and all after it.
class CShortMemory {
public:
    explicit CShortMemory(unsigned nth)
    {
        xmlMemSetup(
            std::free, [](std::size_t size) { return IsMemoryShort() ? nullptr : std::malloc(size); },
            [](void* memory, std::size_t size) { return IsMemoryShort() ? nullptr : std::realloc(memory, size); },
            [](const char* text) { return IsMemoryShort() ? nullptr : ::strdup(text); });
        g_allocationsLeft = nth + 1;
    }
    ~CShortMemory()
    {
        g_allocationsLeft = 0;
        xmlMemSetup(std::free, std::malloc, std::realloc, ::strdup);
    }
    CShortMemory(const CShortMemory&) = delete;
    CShortMemory& operator=(const CShortMemory&) = delete;

    bool HasRunOut() const { return g_allocationsLeft == 1; }
};

TEST_F(LinuxDom, RunningOutOfMemoryInTheParserIsAFailure)
{
    // Symptom: running out of memory in the parser counted as a report that is not well-formed.
    const CString xml = L"<!-- c --><r a='a value that is not short &amp; one more'>text that is not short" +
                        DifferentNames(300) + Repeated(L"<d>", 100) + Repeated(L"</d>", 100) +
                        L"<![CDATA[x]]><?p q?></r>";
    ASSERT_TRUE(Loads(xml));
    for (unsigned nth = 1;; ++nth) {
        const CShortMemory memory(nth);
        const bool loaded = Loads(xml);
        if (!memory.HasRunOut()) {
            EXPECT_TRUE(loaded);
            EXPECT_GT(nth, 20U);
            break;
        }
        ASSERT_FALSE(loaded) << nth;
        ASSERT_EQ(m_status, E_OUTOFMEMORY) << nth;
        ASSERT_EQ(Root(), nullptr) << nth;
    }
}

TEST_F(LinuxDom, NothingThatAFilesDocumentTypeDeclaresIsRead)
{
    std::string xml = "<!DOCTYPE r [";
    for (unsigned i = 0; i < 200; ++i) {
        xml += "<!ENTITY e" + std::to_string(i) + " 'text'>";
    }
    const testing_support::CScratchFolder folder;
    const CString path = folder.Write("report.xml", xml + "]><r/>").wstring();
    bool loaded = true;
    const CShortMemory memory(100); // reading them takes several allocations each
    EXPECT_EQ(LoadDomFile(m_document, path, &loaded), S_FALSE);
    EXPECT_FALSE(loaded);
    EXPECT_FALSE(memory.HasRunOut());
}

TEST_F(LinuxDom, LimitsDifferentNames)
{
    // Symptom: a report of elements with different names took 26 seconds.
    EXPECT_TRUE(Loads(DifferentNames(9'900)));
    EXPECT_FALSE(Loads(DifferentNames(12'000)));
}

TEST_F(LinuxDom, ReadsNoFurtherAfterAnError)
{
    // Symptom: 8 MiB of syntax errors took two seconds, because the parser reported each of them.
    const CString xml = L"<r>" + CString(8'000'000, L'&');
    const double start = ProcessorSeconds();
    EXPECT_FALSE(Loads(xml));
    EXPECT_LT(ProcessorSeconds() - start, 1.0);
}

TEST_F(LinuxDom, TextInsideManyAttributesIsReadInLinearTime)
{
    // Symptom: the text of an element with many children and many attributes took more than 40 seconds.
    CString start = L"<a";
    for (int i = 0; i < 200; ++i) {
        start += L" b" + std::to_wstring(i) + L"=''";
    }
    ASSERT_TRUE(Loads(L"<r><u>" + Repeated(start + L">", 240) + Repeated(L"<c>x</c>", 100'000) +
                      Repeated(L"</a>", 240) + L"</u></r>"));
    DomNodeListPtr list;
    DomNodePtr node;
    CString text;
    ASSERT_EQ(GetDomChildNodes(Root(), &list), S_OK);
    ASSERT_EQ(GetDomItem(list, 0, &node), S_OK);
    const double before = ProcessorSeconds();
    EXPECT_EQ(GetDomText(node, &text), S_OK);
    EXPECT_LT(ProcessorSeconds() - before, 1.0);
    EXPECT_EQ(text, CString(100'000, L'x'));
}

} // namespace
} // namespace platform
