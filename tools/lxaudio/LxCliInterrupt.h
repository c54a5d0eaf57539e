#pragma once
// Ctrl-C for long commands: instead of killing the process, SIGINT (SIGTERM, SIGHUP)
// set a flag that progress receivers and the record loop poll, so the command
// can stop its operation, keep what it has and save the project.
#include <atomic>
#include <csignal>

class LxCliInterrupt {
public:
    // Installs the handlers (idempotent).
    static void Install() {
        std::signal(SIGINT, &LxCliInterrupt::OnSignal);
        std::signal(SIGTERM, &LxCliInterrupt::OnSignal);
#ifdef SIGHUP
        std::signal(SIGHUP, &LxCliInterrupt::OnSignal);
#endif
    }
    static bool Requested() { return flag().load(); }
    static void Clear() { flag().store(false); }

private:
    static void OnSignal(int) { flag().store(true); }
    static std::atomic<bool>& flag() {
        static std::atomic<bool> value{false};
        return value;
    }
};
