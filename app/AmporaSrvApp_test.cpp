#include "app/AmporaSrvApp.h"
