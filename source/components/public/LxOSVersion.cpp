#include "LxPublic/LxOSVersion.h"

#if defined(_WIN32)
#include <windows.h>
#endif

EWindowsVersion LxOSVersion::GetOSVersion() {
#if defined(_WIN32)
    // GetVersionEx is capped by the application manifest; RtlGetVersion is not.
    using RtlGetVersionFn = LONG(WINAPI*)(OSVERSIONINFOW*);
    HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
    auto rtlGetVersion = ntdll ? reinterpret_cast<RtlGetVersionFn>(
                                     reinterpret_cast<void*>(GetProcAddress(ntdll, "RtlGetVersion")))
                               : nullptr;
    OSVERSIONINFOW info{};
    info.dwOSVersionInfoSize = sizeof(info);
    if (!rtlGetVersion || rtlGetVersion(&info) != 0) return kLxOSUnknown;
    if (info.dwMajorVersion >= 10) return kLxOSWindows10;
    if (info.dwMajorVersion == 6) {
        switch (info.dwMinorVersion) {
            case 0: return kLxOSWindowsVista;
            case 1: return kLxOSWindows7;
            case 2: return kLxOSWindows8;
            default: return kLxOSWindows81;
        }
    }
    if (info.dwMajorVersion == 5) return kLxOSWindowsXP;
    return kLxOSUnknown;
#else
    return kLxOSNotWindows;
#endif
}
