#include "platform/contract/DomFixture.h"

namespace contract {

bool IsWineDom() { return false; }

} // namespace contract
