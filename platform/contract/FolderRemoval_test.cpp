// What happens when a watched folder goes. Only for backends whose system tells of it.
#include "platform/contract/FolderWatchTest.h"

using namespace platform;

namespace contract {
namespace {

TEST_F(FolderWatchContract, OutlivesItsFolder)
{
    const FolderWatchPtr watch = OpenFolderWatch(m_folder);
    RemovePath(m_path);
    ExpectChanged(watch);
    RemovePath(m_folder);
    ExpectChanged(watch);
    Make(m_folder);
    ExpectChanged(watch);
    Write(m_path);
    ExpectChanged(watch);
}

} // namespace
} // namespace contract
