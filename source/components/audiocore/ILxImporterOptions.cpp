#include "ILxImporterOptions.h"

ILxImporterOptions::~ILxImporterOptions() = default;
