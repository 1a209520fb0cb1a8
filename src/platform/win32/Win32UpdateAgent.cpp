#include <objbase.h>
#include <wuapi.h>

#include "core/LazyDll.h"
#include "core/UniqueHandle.h"
#include "platform/win32/Win32Services.h"

namespace platform {

using CORE::LazyExport;

namespace {

// The agent's UpdateInstaller class and its IUpdateInstaller interface.
constexpr CLSID kUpdateInstallerClass = {0xD2E0FE7F, 0xD23E, 0x48E1, {0x93, 0xC0, 0x6F, 0xA8, 0xCC, 0x34, 0x64, 0x74}};
constexpr IID kUpdateInstallerInterface = {0x7B929C68, 0xCCDC, 0x4226, {0x96, 0xB1, 0x87, 0x24, 0x60, 0x0B, 0x54, 0xC2}};

}  // namespace

UpdateAgent::Answer Win32UpdateAgent::QueryInstallerBusy()
{
    // ole32 is loaded only by runs that ask: most runs never do.
    static const auto initialize = LazyExport<decltype(&::CoInitializeEx)>(L"ole32.dll", "CoInitializeEx");
    static const auto create = LazyExport<decltype(&::CoCreateInstance)>(L"ole32.dll", "CoCreateInstance");
    static const auto uninitialize = LazyExport<decltype(&::CoUninitialize)>(L"ole32.dll", "CoUninitialize");
    // Taken once, right after the lookups, so later looks report the same cause.
    static const DWORD loadError = initialize && create && uninitialize ? 0 : ::GetLastError();

    Answer answer;
    if (!initialize || !create || !uninitialize) {
        answer.failure = Failure::CreateInstaller;
        answer.error = HRESULT_FROM_WIN32(loadError ? loadError : ERROR_PROC_NOT_FOUND);
        return answer;
    }

    initialize(nullptr, COINIT_MULTITHREADED);
    {
        // Released before COM is left.
        CORE::ComPtr<IUpdateInstaller> installer;
        HRESULT hr = create(kUpdateInstallerClass, nullptr, CLSCTX_INPROC_SERVER, kUpdateInstallerInterface,
                            reinterpret_cast<void**>(installer.out()));
        if (FAILED(hr) || !installer) {
            answer.failure = Failure::CreateInstaller;
            answer.error = FAILED(hr) ? hr : E_NOINTERFACE;
        } else {
            VARIANT_BOOL busy = VARIANT_FALSE;
            hr = installer->get_IsBusy(&busy);
            if (FAILED(hr)) {
                answer.failure = Failure::ReadIsBusy;
                answer.error = hr;
            } else {
                answer.busy = busy != VARIANT_FALSE;
            }
        }
    }
    uninitialize();
    return answer;
}

}  // namespace platform
