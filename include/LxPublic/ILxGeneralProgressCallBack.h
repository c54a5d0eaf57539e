#pragma once
// Receiver of the progress of a long operation (compaction, import). Task names
// are keys ("kLxImportingAudio", ...) that the host maps to its own texts.
#include "LxString.h"

class LXPUBLIC_API ILxGeneralProgressCallBack {
public:
    virtual ~ILxGeneralProgressCallBack();
    // The first task of an operation; options is 0.
    virtual void BeginTask(const LxString& taskKey, int total, int options) = 0;
    // A later task of the same operation.
    virtual void BeginNextTask(const LxString& taskKey, int total) = 0;
    // Items done so far in the current task.
    virtual void ReportProgress(int done) = 0;
    // Polled by operations that can be cancelled.
    virtual bool IsCancelled() { return false; }
    // Called once when the operation ends, however it ends.
    virtual void EndTask() = 0;
};
