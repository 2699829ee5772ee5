// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

// Writes the ZMV samples: "make_samples samples", or with "make_samples --seeds fuzz/seeds/zmv" the same
// files with a fuzzer's mode byte in front.

#include "tests/support/zmvsamples.h"

#include <fstream>
#include <iostream>
#include <string>

int main(int argc, char** argv)
{
    const bool seeds = argc == 3 && std::string(argv[1]) == "--seeds";
    if (argc != 2 && !seeds) {
        std::cerr << "usage: make_samples [--seeds] DIRECTORY\n";
        return 1;
    }
    const std::string directory = argv[argc - 1];
    unsigned char mode = 0;
    for (const krx::test::ZmvSample& sample : krx::test::zmvSamples()) {
        const std::string name = seeds ? sample.name.substr(0, sample.name.rfind('.')) : sample.name;
        std::ofstream out(directory + "/" + name, std::ios::binary);
        if (seeds)
            out.put(static_cast<char>(mode++));
        out.write(sample.bytes.data(), static_cast<std::streamsize>(sample.bytes.size()));
        out.close();
        if (!out) {
            std::cerr << "cannot write " << directory << "/" << name << "\n";
            return 1;
        }
    }
    return 0;
}
