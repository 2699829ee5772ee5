// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

// Writes the HTML page of COUNT made inputs to the standard output:
//
//     make_page COUNT

#include "tests/archive/recordmaker.h"
#include "tools/zmvutil/archive/src/htmlreport.h"

#include <cstdlib>
#include <iostream>

int main(int argc, char** argv)
{
    archive::RecordMaker maker(1);
    archive::HtmlReport report;
    for (long left = argc > 1 ? std::strtol(argv[1], nullptr, 10) : 1; left > 0; --left)
        report.add(maker.record());
    archive::RunInfo run;
    run.startedAt = 1'767'312'000;
    run.endedAt = run.startedAt + 3600;
    run.roots = {"archive", maker.name()};
    report.write(std::cout, {run});
    return 0;
}
