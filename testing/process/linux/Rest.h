// Whether a program has nothing to do.
#pragma once

namespace testing_support {

// Whether all threads of the program wait for something without a time limit, in ppoll. False as well when it has
// ended. Any thread.
bool IsAtRest(int processId);

} // namespace testing_support
