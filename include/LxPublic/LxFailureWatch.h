#pragma once
// The rule for every I/O step whose outcome matters: compare the failure
// counters before and after it. A transfer can fail without its own return
// value showing it (a buffered write reaches the disk later, on a flush or on
// the way to a read, or a caller ignored one result of many), but the stream
// counts every failed transfer (ILxStream::GetReadFailures, GetWriteFailures).
// An LxFailureWatch records the counters when it is made; Failed() tells
// whether they have grown since.
//
//     LxFailureWatch watch(out, LxFailureWatch::kWrites);
//     ... write the record, however many calls that takes ...
//     if (watch.Failed()) { report it; return false; }
//
// A counter that is not one stream's (a store's failures over all its member
// files) is watched through a function that returns it. The watched stream
// (or whatever the function reads) must outlive the watch.
#include <cstdint>
#include <functional>
#include <utility>
#include "ILxStream.h"

class LxFailureWatch {
public:
    enum Kind { kReads = 1, kWrites = 2, kReadsAndWrites = kReads | kWrites };

    explicit LxFailureWatch(const ILxStream& stream, Kind kind = kReadsAndWrites)
        : LxFailureWatch([&stream, kind] {
              return ((kind & kReads) ? stream.GetReadFailures() : 0) +
                     ((kind & kWrites) ? stream.GetWriteFailures() : 0);
          }) {}
    explicit LxFailureWatch(std::function<int64_t()> failureCounter)
        : counter(std::move(failureCounter)), baseline(counter()) {}

    // Failures since the watch was made (or restarted).
    int64_t Count() const { return counter() - baseline; }
    bool Failed() const { return Count() != 0; }
    // Takes the failures so far as the healthy state.
    void Restart() { baseline = counter(); }

private:
    std::function<int64_t()> counter;
    int64_t baseline;
};
