// What the writer of a load test writes and its readers expect.
#pragma once

namespace testing_support {

// A generation has its number modulo this many records, each with its number as value.
inline constexpr unsigned kGenerationSizes = 100;

} // namespace testing_support
