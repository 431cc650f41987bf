#include "data/AmporaAnalyzer.h"

#include "config/TraceLog.h"

CAmporaAnalyzer::CAmporaAnalyzer() { const CTraceScope scope(L"CAmporaAnalyzer::CAmporaAnalyzer"); }

CAmporaAnalyzer::~CAmporaAnalyzer() { const CTraceScope scope(L"CAmporaAnalyzer::~CAmporaAnalyzer"); }
