#include "platform/Services.h"

#include "platform/win32/Win32Services.h"

namespace platform {

Services win32Services()
{
    // Function-local statics: usable from any static initialiser.
    static Win32KeyStore keys;
    static Win32FileSystem files;
    static Win32Processes processes;
    static Win32Installer installer;
    static Win32Network network;
    static Win32Hashing hashing;
    static Win32Power power;
    static Win32Clock clock;
    static Win32Delivery delivery;
    static Win32Console console;
    static Win32UpdateAgent updateAgent;
    return Services{&keys, &files, &processes, &installer, &updateAgent, &network, &hashing, &power, &clock, &delivery,
                    &console};
}

Services& services()
{
    static Services current = win32Services();
    return current;
}

}  // namespace platform
