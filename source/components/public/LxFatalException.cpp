#include "LxPublic/LxFatalException.h"

// The key function: the class's virtual table and type information live here.
LxFatalException::~LxFatalException() = default;
