#include "LxPublic/LxLCException.h"

// The key function: the class's virtual table and type information live here.
LxLCException::~LxLCException() = default;
