#include "fetch/AmporaSiteConfig.h"

#include "config/TraceLog.h"

CAmporaSiteConfig::CAmporaSiteConfig() { const CTraceScope scope(L"CAmporaSiteConfig::CAmporaSiteConfig"); }

CAmporaSiteConfig::~CAmporaSiteConfig() { const CTraceScope scope(L"CAmporaSiteConfig::~CAmporaSiteConfig"); }
