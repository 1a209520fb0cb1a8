#pragma once
// Restarts the machine at the end of a run when the job calls for it.
void Util_CheckReboot();
