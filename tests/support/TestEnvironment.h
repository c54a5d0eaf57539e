#pragma once
// Sets and clears process environment variables from a test, the same way on
// POSIX and on Windows (where the engine's DLLs read them through the shared C
// runtime's getenv); and whether outside programs a test runs are installed.
#include <cstdlib>
#include <initializer_list>
#include <string>

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
    // Whether each program answers --version (never on Windows: the tests run them through a POSIX shell).
    static bool HavePrograms(std::initializer_list<const char*> programs) {
#if defined(_WIN32)
        (void)programs;
        return false;
#else
        for (const char* program : programs)
            if (std::system((std::string(program) + " --version > /dev/null 2>&1").c_str()) != 0) return false;
        return true;
#endif
    }
};
