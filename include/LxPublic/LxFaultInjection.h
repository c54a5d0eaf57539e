#pragma once
// A test hook in the platform's file streams: makes the n-th read, write, seek
// or flush of any file stream in the process fail, or the disk "full" after a
// number of bytes, so that tests can check what every layer above does when
// the disk lets it down. Disarmed (the normal state) it costs one atomic load
// per call. Process-wide; tests that arm it must not run file I/O in parallel
// with other tests.
#include <cstdint>
#include "LxPublicExport.h"

class LXPUBLIC_API LxFaultInjection {
public:
    enum Operation { kRead = 0, kWrite = 1, kSeek = 2, kFlush = 3, kOperationCount = 4 };

    // The nth call (1-based, counted from now) of op fails; every later call
    // succeeds again. 0 disarms op.
    static void FailNth(Operation op, int64_t n);
    // Bytes that may still reach the disk; writes beyond are cut short, as on a
    // full disk. -1: unlimited.
    static void SetDiskSpace(int64_t bytes);
    // What SetDiskSpace left, -1 when it is not armed. LxFileUtil's free-space
    // query reports no more than this, as a real disk would.
    static int64_t GetDiskSpace();
    // Disarms everything and zeroes the counters.
    static void Reset();
    // Calls of op seen since the last Reset (counted only while anything is armed
    // or counting is on).
    static int64_t Count(Operation op);
    // Counts calls without failing any, to learn how many a scenario makes.
    static void StartCounting();
    // Faults injected since the last Reset.
    static int64_t Injected();

    // Called by the file streams: true when this call must fail.
    static bool ShouldFail(Operation op);
    // Called before bytes go to disk: how many of them fit.
    static int64_t AllowDiskBytes(int64_t bytes);
};
