// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

// Holds the rules of checking and repairing against thousands of damaged files: made ones, and the samples
// with some of their bytes changed. VIDLINT_PROPERTY_CASES asks for more of them, VIDLINT_PROPERTY_SEED for
// others.

#include "tests/support/repairrules.h"
#include "tests/support/zmvsamples.h"
#include "tests/vidlint/zmvgenerator.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <string>
#include <vector>

namespace krx::test {
namespace {

unsigned long setting(const char* name, unsigned long usual)
{
    const char* const value = std::getenv(name);
    return value ? std::strtoul(value, nullptr, 10) : usual;
}

TEST(ZmvProperties, DamagedFiles)
{
    const unsigned long cases = setting("VIDLINT_PROPERTY_CASES", 4000);
    const auto samples = zmvSamples();
    ZmvGenerator generator(static_cast<std::uint32_t>(setting("VIDLINT_PROPERTY_SEED", 1)));
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
