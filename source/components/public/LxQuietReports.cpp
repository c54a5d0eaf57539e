#include "LxPublic/LxQuietReports.h"

namespace {

thread_local int tQuietDepth = 0;

}  // namespace

LxQuietReports::LxQuietReports() { ++tQuietDepth; }

LxQuietReports::~LxQuietReports() { --tQuietDepth; }

bool LxQuietReports::Active() { return tQuietDepth > 0; }
