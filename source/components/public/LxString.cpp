#include "LxPublic/LxString.h"

LxString& LxString::AppendNumber(long long value) {
    text += std::to_string(value);
    return *this;
}
