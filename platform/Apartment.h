// The calling thread's COM apartment, which the DOM needs (Dom.h). Nothing to do off Windows.
#pragma once

namespace platform {

// Enters a single-threaded apartment on the calling thread. Calls nest; each is paired with one of LeaveApartment.
void EnterApartment();

// Leaves it again, on the same thread.
void LeaveApartment();

} // namespace platform
