#pragma once
#include <string>

#include <json/json.h>

#include "core/string/corestring.h"

// Appends this run's entry to the telemetry file.
bool Util_UpdateDataForTelemetry();
// Reads and parses the whole file; a missing file is created empty by the
// read. Sets the thread's last error (0 on success).
bool LoadJsonFile(CORE::corestring path, Json::Value& root);
