// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

// Writes all samples: "make_samples samples".

#include "tests/support/writesamples.h"

#include <exception>
#include <iostream>

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::cerr << "usage: make_samples DIRECTORY\n";
        return 1;
    }
    try {
        krx::test::writeSamples(argv[1]);
    } catch (const std::exception& e) {
        std::cerr << e.what() << "\n";
        return 1;
    }
    return 0;
}
