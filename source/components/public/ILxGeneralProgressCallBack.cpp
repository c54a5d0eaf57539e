#include "LxPublic/ILxGeneralProgressCallBack.h"

ILxGeneralProgressCallBack::~ILxGeneralProgressCallBack() = default;
