#include "platform/contract/NativeFixture.h"

#include "platform/contract/Fixture.h"
#include "platform/Text.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <sstream>

namespace contract {

using platform::EncodeUtf8;

testing_support::CPeer& OtherProcess()
{
    static testing_support::CPeer peer;
    return peer;
}

void OtherProcessAcquiresMutex(const CString& name) { EXPECT_TRUE(OtherProcess().Do("acquire " + EncodeUtf8(name))); }

void OtherProcessReleasesMutex(const CString& name) { EXPECT_TRUE(OtherProcess().Do("release " + EncodeUtf8(name))); }

void OtherProcessAbandonsMutex(const CString&) { OtherProcess().Kill(); }

BOOL OtherProcessSetsEvent(const CString& name) { return OtherProcess().Do("set " + EncodeUtf8(name)) ? TRUE : FALSE; }

bool OtherProcessFindsWindow(const CString& className) { return OtherProcess().Do("find " + EncodeUtf8(className)); }

BOOL OtherProcessPostsToWindow(const CString& className, UINT message, WPARAM wParam, LPARAM lParam)
{
    std::ostringstream command;
    command << "post " << EncodeUtf8(className) << " " << message << " " << wParam << " " << lParam;
    return OtherProcess().Do(command.str()) ? TRUE : FALSE;
}

void HoldFileOpen(const CString& path) { EXPECT_TRUE(OtherProcess().Do("hold " + EncodeUtf8(path))); }

void LetGoOfFile(const CString& path) { EXPECT_TRUE(OtherProcess().Do("drop " + EncodeUtf8(path))); }

void RemovePath(const CString& path) { EXPECT_TRUE(std::filesystem::remove(path)); }

void RenameFile(const CString& path, const CString& newPath) { std::filesystem::rename(path, newPath); }

} // namespace contract
