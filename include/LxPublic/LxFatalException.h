#pragma once
// An error after which the object that raised it cannot be used further.
#include "LxException.h"

class LXPUBLIC_API LxFatalException : public LxException {
public:
    using LxException::LxException;
    ~LxFatalException() override;
};
