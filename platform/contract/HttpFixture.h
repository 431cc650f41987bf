// What a backend supplies so that the HTTP part of the contract suite can drive it: a web to talk to.
//
// Functions are called between SetUp and TearDown of Fixture.h, on the test's main thread.
#pragma once

#include "platform/Types.h"
#include "testing/HttpAnswer.h"

#include <vector>

namespace contract {

// Where a server is.
struct Place {
    CString server;
    WORD port;
};

// Keeps proxies that the environment names away from the test.
void UseNoProxy();

// Starts a server that answers with this handler, which may run on another thread; once a test. It stops with the next
// call of StopWeb, which TearDown of a test has to make.
Place StartWeb(testing_support::HttpHandler handler);
void StopWeb();

// A place where connections are refused, until StopWeb.
Place RefusingPlace();

// Bytes that the server sends before the header of each answer. Native backends only.
void SendBeforeAnswers(const char* bytes);

// Every request that reached the server so far.
std::vector<testing_support::HttpExchange> WebExchanges();

// Whether this is wine's WinINet, which differs from the documented one: it takes what is no HTTP for an answer, and
// chunks that break off for the body's end; follows circular redirections forever; and keeps connections beyond
// their session.
bool IsWineInternet();

} // namespace contract
