#pragma once
// Scheduling priorities of platform threads. They are recorded as plain values;
// threads run at the operating system's default priority.
enum LxThreadPriorityEnum : int {
    kLxThreadPriorityIdle = 0,
    kLxThreadPriorityLowest = 1,
    kLxThreadPriorityNormal = 2,
    kLxThreadPriorityAboveNormal = 3,
    kLxThreadPriorityHighest = 4,
    kLxThreadPriorityTimeCritical = 5,
};
