#pragma once
// Export macro of the platform library (LxPublic).
// LXPUBLIC_BUILDING is defined while the library itself is compiled;
// LXPUBLIC_STATIC when it is linked statically.
#if defined(LXPUBLIC_STATIC)
#define LXPUBLIC_API
#elif defined(_WIN32)
#if defined(LXPUBLIC_BUILDING)
#define LXPUBLIC_API __declspec(dllexport)
#else
#define LXPUBLIC_API __declspec(dllimport)
#endif
#elif defined(__GNUC__)
#define LXPUBLIC_API __attribute__((visibility("default")))
#else
#define LXPUBLIC_API
#endif
