#include "platform/Apartment.h"

#include "platform/sim/MachineState.h"

namespace platform {

// As in Dom.cpp.
decltype(EnterApartment) RealEnterApartment;
decltype(LeaveApartment) RealLeaveApartment;

void EnterApartment()
{
    ++sim::Machine().apartmentBalance;
    RealEnterApartment();
}

void LeaveApartment()
{
    --sim::Machine().apartmentBalance;
    RealLeaveApartment();
}

} // namespace platform
