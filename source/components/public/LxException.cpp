#include "LxPublic/LxException.h"

// The key function: the class's virtual table and type information live here.
LxException::~LxException() = default;
