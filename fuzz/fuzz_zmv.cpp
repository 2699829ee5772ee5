// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

// Checks the rules of checking and repairing on a ZMV file. The first byte chooses the options, the rest is
// the file.

#include "tests/support/repairrules.h"

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static krx::test::RepairRules rules;
    if (size == 0)
        return 0;

    const unsigned mode = data[0];
    krx::streams::VideoValidationParameters parameters;
    parameters.warningsAsErrors = (mode & 1) != 0;
    parameters.fixMetaData = (mode & 2) != 0;
    parameters.fixVideoStall = (mode & 4) != 0;
    parameters.durationMargin = mode >> 5;
    const std::string problem = rules.broken(std::string(data + 1, data + size), parameters);
    if (!problem.empty()) {
        std::cerr << problem << "\n";
        std::abort();
    }
    return 0;
}
