// What the HTTP tests of the contract suite share.
#pragma once

#include "platform/contract/ContractTest.h"
#include "platform/contract/HttpFixture.h"
#include "platform/Http.h"

#include <string>
#include <utility>

namespace contract {

// Opens a request for an object at a place, not yet sent.
inline platform::HttpRequestPtr OpenAt(const platform::HttpSessionPtr& session, const Place& place,
                                       const CString& object)
{
    const platform::HttpConnectionPtr connection = platform::OpenHttpConnection(session, place.server, place.port);
    EXPECT_NE(connection, nullptr);
    return connection ? platform::OpenHttpRequest(connection, object, 1) : nullptr;
}

inline DWORD StatusOf(const platform::HttpRequestPtr& request)
{
    DWORD status = 0;
    EXPECT_TRUE(platform::QueryHttpStatusCode(request, &status));
    return status;
}

// Reads the body to its end, or to its break: then *isBroken is set.
inline std::string ReadBody(const platform::HttpRequestPtr& request, bool* isBroken)
{
    std::string body;
    char piece[4096];
    *isBroken = false;
    try {
        while (const std::size_t size = platform::ReadHttpBody(request, piece, sizeof piece)) {
            body.append(piece, size);
        }
    } catch (const platform::CInternetException&) {
        *isBroken = true;
    }
    return body;
}

// One test with a session and a web of its own.
class HttpTest : public ContractTest {
protected:
    void SetUp() override
    {
        ContractTest::SetUp();
        UseNoProxy();
        m_session = platform::OpenHttpSession(L"Contract Test", 1);
        ASSERT_NE(m_session, nullptr);
    }

    void TearDown() override
    {
        platform::CloseHttpSession(m_session);
        StopWeb();
        ContractTest::TearDown();
    }

    // From here on the web answers with this.
    void Serve(testing_support::HttpHandler handler) { m_place = StartWeb(std::move(handler)); }
    void Serve(const testing_support::HttpAnswer& answer)
    {
        Serve([answer](const testing_support::HttpExchange&) { return answer; });
    }

    platform::HttpRequestPtr Open(const CString& object = L"/path") const { return OpenAt(m_session, m_place, object); }

    // Asks for an object and reads what comes; the answer must come whole.
    std::pair<DWORD, std::string> Get(const CString& object = L"/path") const
    {
        const platform::HttpRequestPtr request = Open(object);
        if (!request || !platform::SendHttpRequest(request)) {
            ADD_FAILURE() << "no answer";
            return {};
        }
        bool isBroken = false;
        std::string body = ReadBody(request, &isBroken);
        EXPECT_FALSE(isBroken);
        return {StatusOf(request), std::move(body)};
    }

    platform::HttpSessionPtr m_session;
    Place m_place = {};
};

} // namespace contract
