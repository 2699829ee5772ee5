// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

// Checks the rules of checking and repairing on thousands of damaged files: generated ones, and samples with
// some bytes changed. VIDLINT_PROPERTY_CASES sets their number, VIDLINT_PROPERTY_SEED selects others.

#include "tests/support/propertysettings.h"
#include "tests/support/repairrules.h"
#include "tests/support/zmvsamples.h"
#include "tests/vidlint/zmvgenerator.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

namespace krx::test {
namespace {

TEST(ZmvProperties, DamagedFiles)
{
    const unsigned long cases = propertyCases(4000);
    const auto samples = zmvSamples();
    ZmvGenerator generator(propertySeed());
    RepairRules rules;
    std::map<std::string, unsigned> problems;
    for (unsigned long i = 0; i < cases; ++i) {
        const std::string file =
            i % 4 != 0 ? generator.file() : generator.damaged(samples[i / 4 % samples.size()].bytes);
        streams::VideoValidationParameters parameters;
        const std::uint32_t choice = generator.below(64);
        parameters.fixMetaData = (choice & 1) != 0;
        parameters.fixVideoStall = (choice & 2) != 0;
        parameters.warningsAsErrors = choice >> 2 == 0;
        parameters.durationMargin = choice >> 4;
        const std::string problem = rules.broken(file, parameters);
        if (problem.empty() || ++problems[problem] > 1)
            continue;
        const std::string name = testing::TempDir() + "property-" + std::to_string(i) + ".zmv";
        std::ofstream(name, std::ios::binary) << file;
        ADD_FAILURE() << problem << ": " << name << (parameters.fixMetaData ? " -m" : "")
                      << (parameters.fixVideoStall ? " -s" : "") << (parameters.warningsAsErrors ? " -W" : "")
                      << " -d" << parameters.durationMargin;
    }
    for (const auto& [problem, count] : problems)
        std::cout << count << " times: " << problem << "\n";
    EXPECT_GT(rules.copies, cases / 10);
    std::cout << rules.copies << " copies\n";
}

}  // namespace
}  // namespace krx::test
