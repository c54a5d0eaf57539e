#pragma once
// A library error named by an error key (for example "kLxErrorInternal") that
// the host maps to its own text. Carries the source file and line that raised it.
#include "LxException.h"

class LXPUBLIC_API LxLCException : public LxException {
public:
    LxLCException(const LxString& name, const char* raisedIn, int raisedAt)
        : LxException(name), errorName(name), sourceFile(raisedIn ? raisedIn : ""), line(raisedAt) {}
    explicit LxLCException(const LxString& name) : LxLCException(name, "", 0) {}
    ~LxLCException() override;

    const LxString& GetErrorName() const { return errorName; }
    const LxString& GetSourceFile() const { return sourceFile; }
    int GetLine() const { return line; }

private:
    LxString errorName;
    LxString sourceFile;
    int line;
};
