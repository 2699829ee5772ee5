// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/support/writesamples.h"

#include "tests/support/mp4samples.h"
#include "tests/support/rawbuilder.h"
#include "tests/support/rawsamples.h"
#include "tests/support/zmvsamples.h"

#include <filesystem>
#include <fstream>

namespace krx::test {
namespace {

namespace fs = std::filesystem;

struct Link
{
    const char* name;
    const char* target;
};

/// Findings about a path, not about content.
constexpr Link kLinks[] = {
    {"faults/2-loop.zmv", "2-loop.zmv"},
    {"faults/3-dangling.zmv", "nowhere.zmv"},
    {"faults/4-device.zmv", "/dev/null"},
};

}  // namespace

void writeSamples(const std::string& directory)
{
    const fs::path root(directory);
    fs::create_directories(root / "faults");
    const auto write = [&root](const auto& samples) {
        for (const auto& sample : samples)
            std::ofstream(root / sample.name, std::ios::binary | std::ios::trunc) << sample.bytes;
    };
    write(zmvSamples());
    write(mp4Samples());
    for (const RawSample& sample : rawSamples())
        RawBuilder::write(sample.files, root / sample.name);

    // A directory stands where the corrected copy would be written.
    RawBuilder::write({{"taken", "no room for a corrected copy\n"}}, root / "faults/6-copy.zmv.new");
    for (const Link& link : kLinks) {
        fs::remove(root / link.name);
        fs::create_symlink(link.target, root / link.name);
    }
}

}  // namespace krx::test
