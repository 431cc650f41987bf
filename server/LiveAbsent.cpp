// A program without live sources.
#include "server/Live.h"

#include <iostream>

namespace reportd {
namespace {

int SayAbsent()
{
    std::cerr << "ampora-reportd: live sources need Linux; this program has sample data only\n";
    return 1;
}

} // namespace

bool HasLiveSources() { return false; }

int RunLive(const Options& /*options*/) { return SayAbsent(); }
int RunCheck(const Options& /*options*/) { return SayAbsent(); }
int RunImport(const Options& /*options*/) { return SayAbsent(); }
int RunBackfill(const Options& /*options*/) { return SayAbsent(); }

} // namespace reportd
