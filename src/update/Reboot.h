#pragma once
// Restarts the machine at the end of a run when the job calls for it.
void Util_CheckReboot();
// Shutdown privilege, then a forced restart; true when the platform took it.
bool Util_Reboot();
