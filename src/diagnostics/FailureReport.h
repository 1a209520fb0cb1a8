#pragma once

// Leaves the failed custom action of the installer's log in the job's
// registry values and in a summary file.
bool WriteFailedCustomActionDetailsToRegistry();
