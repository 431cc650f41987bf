// HTTPS for tests. Linux only.
#pragma once

#include "platform/Types.h"

#include <filesystem>
#include <memory>

namespace testing_support {

// Serves over TLS on 127.0.0.1 what a server on another port of 127.0.0.1 serves in the clear, byte for byte. Its
// certificate is for 127.0.0.1 alone, no other name, and is signed by an authority of its own.
class CTlsFront {
public:
    // Makes authority and certificate in this folder, with the program openssl, and listens on a free port from here
    // on. Throws std::exception when it cannot.
    CTlsFront(WORD plainPort, const std::filesystem::path& folder);
    // Ends every connection.
    ~CTlsFront();
    CTlsFront(const CTlsFront&) = delete;
    CTlsFront& operator=(const CTlsFront&) = delete;

    WORD Port() const;
    // The authority's certificate, PEM.
    std::filesystem::path AuthorityFile() const;

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace testing_support
