#pragma once
// After a failed install: the failed custom action of the installer's log,
// in a summary file beside the tool log and in the job's registry values
// "ERRORSUMMARYFILE" and "ERRORDETAILS".
#include <vector>

#include "core/string/corestring.h"

using CORE::corestring;

// Where an installer leaves its own words on a failure: root +
// "\Agent\LastInstallError".
corestring LastInstallErrorPath(corestring root);

// Works from the job's "AGENTLOGFILENAME"; true also when there is none.
bool WriteFailedCustomActionDetailsToRegistry();
// One line of the default code page per non-empty line, each behind the CR
// it already carries; a character with no form there fails the write.
bool WriteFailedCAToErrorSummary(const std::vector<corestring>& lines, corestring path);
// The message goes to the record's description unless the installer left
// "LastInstallError"; true when "ERRORSUMMARYFILE" was written.
bool WriteCADetailsToRegistry(corestring summaryFile, corestring errorMessage, const std::vector<corestring>& lines);
// A REG_MULTI_SZ in an existing key of HKLM ("HKLM\..." or
// "HKEY_LOCAL_MACHINE\..." as the whole key path): each line and its zero,
// and one zero more.
bool WriteMultiStringToRegistry(corestring keyPath, corestring valueName, const std::vector<corestring>& lines);
