// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

// Writes a corrected copy of a ZMV file:
//
//     repair_file INPUT COPY
//
// Without anything to correct there is no copy. The exit status is 1 when the input stays faulty.

#include "printable.h"

#include <vidlint/check.h>

#include <cstdio>

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fputs("Usage: repair_file INPUT COPY\n", stderr);
        return 1;
    }
    vidlint::Settings settings;
    settings.fixMetaData = true;
    settings.fixVideoStall = true;
    const vidlint::InputReport report = vidlint::check(argv[1], settings);
    if (report.verdict != vidlint::Verdict::kValid) {
        std::puts("cannot be repaired");
        return 1;
    }
    for (const vidlint::Fix& fix : report.fixes)
        std::printf("at byte %lld: %s\n", fix.position, printable(fix.description).c_str());
    if (report.fixes.empty())
        return 0;
    if (const std::optional<vidlint::Finding> failure = vidlint::repair(report, argv[2])) {
        std::printf("%d %s\n", failure->number, printable(failure->text).c_str());
        return 1;
    }
    return 0;
}
