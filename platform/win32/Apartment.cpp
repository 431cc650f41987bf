#include "platform/Apartment.h"

#include <objbase.h>

namespace platform {

void EnterApartment() { static_cast<void>(::CoInitialize(nullptr)); }

void LeaveApartment() { ::CoUninitialize(); }

} // namespace platform
