#pragma once
// While one of these lives on a thread, reports raised on that thread are
// counted (LxAssertReportCount) but not handed to the report handler. For work
// done ahead of need on a thread of its own, whose result is thrown away when
// it reported: the same work is then done again where it is needed, and its
// reports are raised there, as they would have been without the work ahead.
// Nests; affects only the thread that made it.
#include "LxPublicExport.h"

class LXPUBLIC_API LxQuietReports {
public:
    LxQuietReports();
    ~LxQuietReports();
    LxQuietReports(const LxQuietReports&) = delete;
    LxQuietReports& operator=(const LxQuietReports&) = delete;

    // True when a LxQuietReports lives on the calling thread.
    static bool Active();
};
