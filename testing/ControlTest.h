// The frame of tests that run amporactl on the simulated machine.
#pragma once

#include "ctl/Control.h"
#include "format/Catalogue.h"
#include "format/DataFilePath.h"
#include "platform/Files.h"
#include "platform/sim/Machine.h"
#include "platform/Text.h"
#include "testing/World.h"

#include <gmock/gmock.h>
#include <sstream>

namespace testing_support {

// A record of five minutes on 2012-07-02.
inline Record FiveMinutes(std::uint64_t value, WORD hour, WORD minute)
{
    return {value, {2012, 7, 1, 2, hour, minute, 0, 0}, {2012, 7, 1, 2, hour, static_cast<WORD>(minute + 5), 0, 0}};
}

// The bytes of a data file.
inline std::vector<BYTE> FileOf(DWORD dataType, const Records& records,
                                const SYSTEMTIME& writeTime = {2012, 7, 1, 2, 13, 30, 5, 500})
{
    const std::string bytes = HeaderBytes(dataType, records.size()) + CalendarBytes(writeTime) + RecordBytes(records);
    return {bytes.begin(), bytes.end()};
}

class CControlTest : public testing::Test {
protected:
    // Runs the program and keeps what it wrote.
    int Run(const std::vector<CString>& arguments)
    {
        std::ostringstream out;
        std::ostringstream err;
        const int exitCode = RunControl(arguments, out, err);
        m_out = out.str();
        m_err = err.str();
        return exitCode;
    }

    // Puts a file into the common folder.
    void Put(int siteNumber, DWORD dataType, std::vector<BYTE> bytes)
    {
        m_machine.PutFile(DataFileIn(DataFolder(), siteNumber, dataType), {.bytes = std::move(bytes)});
    }

    // What the program says about one file.
    static std::string Complaint(int siteNumber, DWORD dataType, const std::string& reason)
    {
        return "amporactl: " + platform::EncodeUtf8(DataFileIn(DataFolder(), siteNumber, dataType)) + ": " + reason +
               "\n";
    }

    platform::sim::CMachine m_machine;
    std::string m_out;
    std::string m_err;
};

} // namespace testing_support
