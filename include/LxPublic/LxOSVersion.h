#pragma once
// The operating system the engine runs on. Windows versions count up; every
// other system reports kLxOSNotWindows.
#include "LxPublicExport.h"

enum EWindowsVersion : int {
    kLxOSUnknown = 0,
    kLxOSWindowsXP = 5,
    kLxOSWindowsVista = 6,
    kLxOSWindows7 = 7,
    kLxOSWindows8 = 8,
    kLxOSWindows81 = 9,
    kLxOSWindows10 = 10,
    kLxOSNotWindows = 100,
};

class LXPUBLIC_API LxOSVersion {
public:
    static EWindowsVersion GetOSVersion();
};
