#pragma once
// A library error named by an error key (for example "kLxErrorInternal") that
// the host maps to its own text. Carries the source file and line that raised it.
#include "LxException.h"

class LXPUBLIC_API LxLCException : public LxException {
public:
    LxLCException(const LxString& errorName, const char* sourceFile, int line)
        : LxException(errorName), errorName_(errorName), sourceFile_(sourceFile ? sourceFile : ""), line_(line) {}
    explicit LxLCException(const LxString& errorName) : LxLCException(errorName, "", 0) {}
    ~LxLCException() override;

    const LxString& GetErrorName() const { return errorName_; }
    const LxString& GetSourceFile() const { return sourceFile_; }
    int GetLine() const { return line_; }

private:
    LxString errorName_;
    LxString sourceFile_;
    int line_;
};
