// The five power companies. They differ in three constants only, so their class is written once, as a template over
// those constants.
#pragma once

#include "config/ConfigUtil.h"
#include "config/TraceLog.h"
#include "fetch/AmporaGoolgeSiteConfig.h"
#include "format/Catalogue.h"
#include "format/DataFilePath.h"

// What makes a company a class of its own.
struct PowerCompany {
    const catalogue::Company& entry;
    // Qualified names for the trace log.
    const wchar_t* constructorName;
    const wchar_t* destructorName;
    const wchar_t* getUrlName;
    const wchar_t* outDataName;
};

// The site of one company. Adds no state and no operations of its own.
template <const PowerCompany& Company>
class CPowerCompany : public CAmporaGoolgeSiteConfig {
public:
    CPowerCompany() { const CTraceScope scope(Company.constructorName); }
    ~CPowerCompany() override { const CTraceScope scope(Company.destructorName); }

    using CAmporaGoolgeSiteConfig::GetURL;
    using CAmporaGoolgeSiteConfig::OutData;

    // As CAmporaSiteConfig::GetURL. Empty, traced, when the settings switch the company or this kind of data off; they
    // are read again at each call.
    CString GetURL(DWORD dataType, SYSTEMTIME day) override
    {
        const CTraceScope scope(Company.getUrlName);
        if (!CConfigUtil::IsSiteEnable(Company.entry.siteNumber)) {
            scope.Tra(L"Not Update Setting");
            return {};
        }
        if ((dataType & CConfigUtil::GetSupportDataType(Company.entry.siteNumber, Company.entry.defaultMask)) == 0) {
            scope.Tra(L"Not Support Setting");
            return {};
        }
        return GetURL(Company.entry.key.Wide(), dataType, day);
    }

    // As CAmporaSiteConfig::OutData. Nothing is written, traced, when the file's path is unknown.
    void OutData(DWORD dataType, const CAmporaDataCollection* collection, SYSTEMTIME writeTime) override
    {
        const CTraceScope scope(Company.outDataName);
        // Called to create the folder: GetFilePath below finds the path itself.
        if (GetSaveFolderPath().empty()) {
            scope.Err(L"Save Folder Path Get Fail.");
            return;
        }
        wchar_t filePath[MAX_PATH];
        if (!GetFilePath(filePath, Company.entry.siteNumber, dataType)) {
            scope.Err(L"Save File Path Get Fail.");
            return;
        }
        OutData(filePath, dataType, collection, writeTime);
    }
};

inline constexpr PowerCompany kTokyoPowerCompany{
    *catalogue::FindCompany(catalogue::kTokyo), L"CAmporaTokyoPowerCompany::CAmporaTokyoPowerCompany",
    L"CAmporaTokyoPowerCompany::~CAmporaTokyoPowerCompany", L"CAmporaTokyoPowerCompany::GetURL",
    L"CAmporaTokyoPowerCompany::OutData"};
inline constexpr PowerCompany kTohokuPowerCompany{
    *catalogue::FindCompany(catalogue::kTohoku), L"CAmporaTohokuPowerCompany::CAmporaTohokuPowerCompany",
    L"CAmporaTohokuPowerCompany::~CAmporaTohokuPowerCompany", L"CAmporaTohokuPowerCompany::GetURL",
    L"CAmporaTohokuPowerCompany::OutData"};
inline constexpr PowerCompany kChubuPowerCompany{
    *catalogue::FindCompany(catalogue::kChubu), L"CAmporaChubuPowerCompany::CAmporaChubuPowerCompany",
    L"CAmporaChubuPowerCompany::~CAmporaChubuPowerCompany", L"CAmporaChubuPowerCompany::GetURL",
    L"CAmporaChubuPowerCompany::OutData"};
inline constexpr PowerCompany kKansaiPowerCompany{
    *catalogue::FindCompany(catalogue::kKansai), L"CAmporaKansaiPowerCompany::CAmporaKansaiPowerCompany",
    L"CAmporaKansaiPowerCompany::~CAmporaKansaiPowerCompany", L"CAmporaKansaiPowerCompany::GetURL",
    L"CAmporaKansaiPowerCompany::OutData"};
inline constexpr PowerCompany kKyushuPowerCompany{
    *catalogue::FindCompany(catalogue::kKyushu), L"CAmporaKyushuPowerCompany::CAmporaKyushuPowerCompany",
    L"CAmporaKyushuPowerCompany::~CAmporaKyushuPowerCompany", L"CAmporaKyushuPowerCompany::GetURL",
    L"CAmporaKyushuPowerCompany::OutData"};

using CAmporaTokyoPowerCompany = CPowerCompany<kTokyoPowerCompany>;
using CAmporaTohokuPowerCompany = CPowerCompany<kTohokuPowerCompany>;
using CAmporaChubuPowerCompany = CPowerCompany<kChubuPowerCompany>;
using CAmporaKansaiPowerCompany = CPowerCompany<kKansaiPowerCompany>;
using CAmporaKyushuPowerCompany = CPowerCompany<kKyushuPowerCompany>;
