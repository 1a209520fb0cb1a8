#pragma once
// Appends this run's entry to the telemetry file.
bool Util_UpdateDataForTelemetry();
