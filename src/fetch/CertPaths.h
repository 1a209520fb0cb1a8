#pragma once
// Where the CA file of the PEM check lies: below the agent's install folder
// under either root, else in the DaaS agent's certificate folder.
#include "core/string/corestring.h"

using CORE::corestring;

// "AgentInstallPath"\cert\cacert.pem of the new root, then of the legacy
// root, when the file is there; otherwise Util_GetDaasCertPath().
corestring UtilGetPEMFilePath();
// "CertFolder" + "CertFileName" of the DaaS agent, read in the 32-bit view;
// may be empty.
corestring Util_GetDaasCertPath();
