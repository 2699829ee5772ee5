// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "tests/support/propertysettings.h"
#include "tests/support/tempdir.h"
#include "tests/support/writesamples.h"
#include "tests/vidlint/zmvgenerator.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <set>
#include <string>
#include <system_error>
#include <vector>

namespace krx::test {

/// The samples of all kinds and the seeds, in a folder of their own.
class SampleInputs
{
public:
    SampleInputs()
    {
        writeSamples(dir.path());
        for (const std::string folder : {"", "/faults"})
            for (const auto& entry : std::filesystem::directory_iterator(dir.path() + folder))
                if (entry.path().filename() != "faults")
                    paths.push_back(entry.path());
        // The seeds of the fuzzers, without their byte of options.
        for (const std::string kind : {"mp4parser", "zmv"})
            for (const auto& entry : std::filesystem::directory_iterator(SEEDS_DIR "/" + kind)) {
                std::ifstream in(entry.path(), std::ios::binary);
                const std::string bytes{std::istreambuf_iterator<char>(in), {}};
                const std::string name = entry.path().filename().string() + (kind == "zmv" ? ".zmv" : ".mp4");
                dir.write(name, std::string_view(bytes).substr(1));
                paths.push_back(dir.bytes(name));
            }
        std::sort(paths.begin(), paths.end());
        paths.erase(std::unique(paths.begin(), paths.end()), paths.end());
    }

    /// The same with some bytes changed: the file, or one file of a recording.
    void damage(unsigned count)
    {
        ZmvGenerator generator(propertySeed());
        const std::vector<std::string> sound = paths;
        std::error_code ignored;
        for (unsigned i = 0; i < count; ++i) {
            const std::string& from = sound[i % sound.size()];
            if (!std::filesystem::is_regular_file(from, ignored) &&
                !std::filesystem::is_directory(from, ignored))
                continue;
            const std::filesystem::path to =
                dir.bytes("damaged" + std::to_string(i)) + std::filesystem::path(from).extension().string();
            std::filesystem::copy(from, to, std::filesystem::copy_options::recursive);
            std::filesystem::path file = to;
            if (std::filesystem::is_directory(to)) {
                std::set<std::filesystem::path> files(std::filesystem::directory_iterator(to), {});
                if (files.empty())
                    continue;
                file = *std::next(files.begin(), generator.below(static_cast<unsigned>(files.size())));
            }
            const std::string name = std::filesystem::relative(file, dir.path());
            dir.write(name, generator.damaged(dir.read(name)));
            paths.push_back(to);
        }
    }

    TempDir dir;
    std::vector<std::string> paths;
};

}  // namespace krx::test
