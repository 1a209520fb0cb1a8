// Where each component of the product kept its group policies under the
// legacy brand: the first subkey under the new-brand root, in lower case, and
// the component's key below "Software\Policies\Kesmarc, Inc.". A component
// without a row has no legacy policy. Keep the rows in alphabetical order.
#include "registry/Policy.h"

namespace {

constexpr LegacyPolicyRow kRows[] = {
    // component under the new root   legacy policy key
    {L"activityhistory",         L"Kesmarc TQM\\ActivityHistory"},
    {L"agent",                   L"Kesmarc TQM\\Agent"},
    {L"agent\\configuration",    L"Kesmarc TQM\\AgentConfiguration"},  // never hit: lookups use the first component only
    {L"alerts",                  L"Kesmarc TQM\\Alerts"},
    {L"antimalware",             L"Kesmarc Antimalware"},
    {L"applicationcontrol",      L"Kesmarc TQM\\ApplicationControl"},
    {L"assetinventory",          L"Kesmarc TQM\\AssetInventory"},
    {L"audit",                   L"Kesmarc TQM\\Audit"},
    {L"backup",                  L"Kesmarc Backup"},
    {L"behaviormonitor",         L"Kesmarc TQM\\BehaviorMonitor"},
    {L"certificates",            L"Kesmarc TQM\\Certificates"},
    {L"cloudconnector",          L"Kesmarc TQM\\CloudConnector"},
    {L"compliance",              L"Kesmarc TQM\\Compliance"},
    {L"console",                 L"Kesmarc TQM\\Console"},
    {L"crashreporting",          L"Kesmarc TQM\\CrashReporting"},
    {L"dataloss",                L"Kesmarc DLP"},
    {L"devicecontrol",           L"Kesmarc TQM\\DeviceControl"},
    {L"diagnostics",             L"Kesmarc TQM\\Diagnostics"},
    {L"diskencryption",          L"Kesmarc DiskEncryption"},
    {L"dns",                     L"Kesmarc TQM\\Dns"},
    {L"emailprotection",         L"Kesmarc MailGuard"},
    {L"eventforwarding",         L"Kesmarc TQM\\EventForwarding"},
    {L"exploitguard",            L"Kesmarc TQM\\ExploitGuard"},
    {L"filereputation",          L"Kesmarc TQM\\FileReputation"},
    {L"firewall",                L"Kesmarc Firewall"},
    {L"health",                  L"Kesmarc TQM\\Health"},
    {L"hostintrusion",           L"Kesmarc HIPS"},
    {L"integrity",               L"Kesmarc TQM\\Integrity"},
    {L"isolation",               L"Kesmarc TQM\\Isolation"},
    {L"licensing",               L"Kesmarc TQM\\Licensing"},
    {L"logging",                 L"Kesmarc TQM\\Logging"},
    {L"maintenance",             L"Kesmarc TQM\\Maintenance"},
    {L"messaging",               L"Kesmarc TQM\\Messaging"},
    {L"network",                 L"Kesmarc TQM\\Network"},
    {L"notifications",           L"Kesmarc TQM\\Notifications"},
    {L"patchmanagement",         L"Kesmarc PatchManagement"},
    {L"performance",             L"Kesmarc TQM\\Performance"},
    {L"proxy",                   L"Kesmarc TQM\\Proxy"},
    {L"quarantine",              L"Kesmarc TQM\\Quarantine"},
    {L"ransomwareshield",        L"Kesmarc TQM\\RansomwareShield"},
    {L"remediation",             L"Kesmarc TQM\\Remediation"},
    {L"remoteshell",             L"Kesmarc TQM\\RemoteShell"},
    {L"reporting",               L"Kesmarc TQM\\Reporting"},
    {L"sandbox",                 L"Kesmarc Sandbox"},
    {L"scanner",                 L"Kesmarc TQM\\Scanner"},
    {L"scheduler",               L"Kesmarc TQM\\Scheduler"},
    {L"selfprotection",          L"Kesmarc TQM\\SelfProtection"},
    {L"sensor",                  L"Kesmarc TQM\\Sensor"},
    {L"services",                L"Kesmarc TQM\\Services"},
    {L"signatures",              L"Kesmarc TQM\\Signatures"},
    {L"systray",                 L"Kesmarc TQM\\Systray"},
    {L"tamperprotection",        L"Kesmarc TQM\\TamperProtection"},
    {L"telemetry",               L"Kesmarc TQM\\Telemetry"},
    {L"threatintel",             L"Kesmarc ThreatIntel"},
    {L"update",                  L"Kesmarc TQM\\Update"},
    {L"updater",                 L"Kesmarc Updater"},
    {L"userinterface",           L"Kesmarc TQM\\UserInterface"},
    {L"vulnerability",           L"Kesmarc TQM\\Vulnerability"},
    {L"webfilter",               L"Kesmarc WebShield"},
};

LegacyPolicyMap buildTable()
{
    LegacyPolicyMap table;
    for (const LegacyPolicyRow& row : kRows)
        table.emplace(corestring(row.component), corestring(row.legacyPath));
    return table;
}

}  // namespace

std::span<const LegacyPolicyRow> LegacyPolicyRows() { return kRows; }

const LegacyPolicyMap& LegacyPolicyTable()
{
    // Built on first use, once, whichever thread gets there first; freed at exit.
    static const LegacyPolicyMap table = buildTable();
    return table;
}
