#pragma once
// <windows.h> as every Windows file of the platform library includes it:
// without the min and max macros and without the rarely used parts.
#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
