#pragma once
#include "platform/Clock.h"
#include "platform/Console.h"
#include "platform/Delivery.h"
#include "platform/FileSystem.h"
#include "platform/Hashing.h"
#include "platform/Installer.h"
#include "platform/KeyStore.h"
#include "platform/Network.h"
#include "platform/Power.h"
#include "platform/Processes.h"
#include "platform/UpdateAgent.h"

namespace platform {

// The services the tool's logic uses to reach the machine. They start as
// the Win32 set, since the tool log and the settings are built during static
// initialisation, before wmain could install anything; tests swap in fakes.
struct Services {
    KeyStore* keys;
    FileSystem* files;
    Processes* processes;
    Installer* installer;
    UpdateAgent* updateAgent;
    Network* network;
    Hashing* hashing;
    Power* power;
    Clock* clock;
    Delivery* delivery;
    Console* console;
};

Services& services();
// The real implementations, for tests that restore or mix them.
Services win32Services();

inline KeyStore& keys() { return *services().keys; }
inline FileSystem& files() { return *services().files; }
inline Processes& processes() { return *services().processes; }
inline Installer& installer() { return *services().installer; }
inline UpdateAgent& updateAgent() { return *services().updateAgent; }
inline Network& network() { return *services().network; }
inline Hashing& hashing() { return *services().hashing; }
inline Power& power() { return *services().power; }
inline Clock& clock() { return *services().clock; }
inline Delivery& delivery() { return *services().delivery; }
inline Console& console() { return *services().console; }

}  // namespace platform
