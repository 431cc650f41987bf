// What the contract tests of documents have to know of the system's parser.
#pragma once

namespace contract {

// Whether this is wine's MSXML, which differs from the documented one: it drops a prefix that nobody declared,
// joins CDATA sections, and refuses wide text for some of the encodings that it declares.
bool IsWineDom();

} // namespace contract
