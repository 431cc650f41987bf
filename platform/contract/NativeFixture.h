// What the fixtures of the native backends share.
#pragma once

#include "testing/process/Peer.h"

namespace contract {

// The other process of the test. TearDown of a fixture kills it.
testing_support::CPeer& OtherProcess();

} // namespace contract
