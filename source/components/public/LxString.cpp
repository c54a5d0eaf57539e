#include "LxPublic/LxString.h"

LxString& LxString::AppendNumber(long long value) {
    text_ += std::to_string(value);
    return *this;
}
