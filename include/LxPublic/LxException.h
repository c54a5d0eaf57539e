#pragma once
// Base of the platform's exceptions.
#include <exception>
#include "LxString.h"

class LXPUBLIC_API LxException : public std::exception {
public:
    explicit LxException(const LxString& text) : message(text) {}
    // Defined in the library, so that its type information and virtual table are
    // exported from there (a DLL exports nothing for a class that is all inline).
    ~LxException() override;
    const char* what() const noexcept override { return message.c_str(); }
    const LxString& GetText() const { return message; }

private:
    LxString message;
};
