#include "app/AmporaSrv.h"

int main() { return RunAmporaSrv(); }
