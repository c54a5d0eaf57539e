#pragma once
// Export macro of the engine library (LxAudioCore).
// LXAUDIOCORE_BUILDING is defined while the shared library is compiled;
// LXAUDIOCORE_STATIC when the engine is linked statically (the test build).
#if defined(LXAUDIOCORE_STATIC)
#define LXAUDIOCORE_API
#elif defined(_WIN32)
#if defined(LXAUDIOCORE_BUILDING)
#define LXAUDIOCORE_API __declspec(dllexport)
#else
#define LXAUDIOCORE_API __declspec(dllimport)
#endif
#elif defined(__GNUC__)
#define LXAUDIOCORE_API __attribute__((visibility("default")))
#else
#define LXAUDIOCORE_API
#endif
