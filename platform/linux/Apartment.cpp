#include "platform/Apartment.h"

namespace platform {

void EnterApartment() {}

void LeaveApartment() {}

} // namespace platform
