// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

// Writes all samples: "make_samples samples", or with "make_samples --seeds zmv DIRECTORY" (or mp4) the files
// of one kind with a fuzzer's mode byte in front.

#include "tests/support/mp4samples.h"
#include "tests/support/writesamples.h"
#include "tests/support/zmvsamples.h"

#include <exception>
#include <fstream>
#include <iostream>
#include <string>

namespace {

/// The name without folder, number and extension.
std::string seedName(const std::string& sample)
{
    const std::size_t folder = sample.rfind('/');
    const std::size_t start = folder == std::string::npos ? 0 : sample.find('-', folder) + 1;
    return sample.substr(start, sample.rfind('.') - start);
}

template <typename Samples>
bool writeSeeds(const Samples& samples, const std::string& directory)
{
    char mode = 0;
    for (const auto& sample : samples) {
        const std::string path = directory + "/" + seedName(sample.name);
        std::ofstream out(path, std::ios::binary);
        out << mode++ << sample.bytes;
        out.close();
        if (!out) {
            std::cerr << "cannot write " << path << "\n";
            return false;
        }
    }
    return true;
}

}  // namespace

int main(int argc, char** argv)
{
    using namespace krx::test;
    if (argc == 4 && std::string(argv[1]) == "--seeds") {
        const bool isZmv = std::string(argv[2]) == "zmv";
        return (isZmv ? writeSeeds(zmvSamples(), argv[3]) : writeSeeds(mp4Samples(), argv[3])) ? 0 : 1;
    }
    if (argc != 2) {
        std::cerr << "usage: make_samples [--seeds zmv|mp4] DIRECTORY\n";
        return 1;
    }
    try {
        writeSamples(argv[1]);
    } catch (const std::exception& e) {
        std::cerr << e.what() << "\n";
        return 1;
    }
    return 0;
}
