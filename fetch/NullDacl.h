// The security descriptor of objects that other users' processes must be able to open.
#pragma once

#include "config/TraceLog.h"
#include "platform/Security.h"

// A new descriptor with a null DACL. Null, traced through log, on failure. Any thread.
platform::SecurityDescriptorPtr MakeNullDacl(const CTraceLog& log);
