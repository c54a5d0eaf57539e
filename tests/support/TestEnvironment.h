#pragma once
// Sets and clears process environment variables from a test, the same way on
// POSIX and on Windows (where the engine's DLLs read them through the shared C
// runtime's getenv).
#include <cstdlib>

class TestEnvironment {
public:
    static void Set(const char* name, const char* value) {
#if defined(_WIN32)
        _putenv_s(name, value);
#else
        setenv(name, value, 1);
#endif
    }
    static void Unset(const char* name) {
#if defined(_WIN32)
        // An empty value removes the variable.
        _putenv_s(name, "");
#else
        unsetenv(name);
#endif
    }
};
