// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

// Writes all samples: "make_samples samples", or with "make_samples --seeds zmv DIRECTORY" (or mp4) the files
// of one kind with a fuzzer's mode byte in front.

#include "tests/support/mp4samples.h"
#include "tests/support/rawbuilder.h"
#include "tests/support/rawsamples.h"
#include "tests/support/zmvsamples.h"

#include <fstream>
#include <iostream>
#include <string>

namespace {

bool writeFile(const std::string& path, const std::string& bytes)
{
    std::ofstream out(path, std::ios::binary);
    out << bytes;
    out.close();
    if (!out)
        std::cerr << "cannot write " << path << "\n";
    return static_cast<bool>(out);
}

template <typename Samples>
bool writeSamples(const Samples& samples, const std::string& directory)
{
    for (const auto& sample : samples) {
        if (!writeFile(directory + "/" + sample.name, sample.bytes))
            return false;
    }
    return true;
}

template <typename Samples>
bool writeSeeds(const Samples& samples, const std::string& directory)
{
    char mode = 0;
    for (const auto& sample : samples) {
        const std::string name = sample.name.substr(0, sample.name.rfind('.'));
        if (!writeFile(directory + "/" + name, std::string(1, mode++) + sample.bytes))
            return false;
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
    const std::string directory = argv[1];
    for (const RawSample& sample : rawSamples())
        RawBuilder::write(sample.files, directory + "/" + sample.name);
    return writeSamples(zmvSamples(), directory) && writeSamples(mp4Samples(), directory) ? 0 : 1;
}
