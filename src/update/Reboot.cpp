#include "update/Reboot.h"

// Not built yet: nothing in this version asks for a restart.
void Util_CheckReboot() {}
