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

namespace {

using krx::test::Amf;
using krx::test::RepairRules;
using krx::test::ZmvBuilder;
using krx::test::ZmvGenerator;

unsigned long setting(const char* name, unsigned long usual)
{
    const char* const value = std::getenv(name);
    return value ? std::strtoul(value, nullptr, 10) : usual;
}

TEST(ZmvProperties, LittleThatMeansMuch)
{
    // In the listing the second property has 18 MB, for which no string has room.
    Amf text = Amf().string("onMetaData").object().name("a").object();
    for (int i = 0; i < 9; ++i)
        text.name("t").string(std::string(64000, 't'));
    text.end().name("b").object();
    for (int i = 0; i < 31; ++i)
        text.name("a").reference(1);
    text.end().name("duration").number(0).name("canSeekToEnd").boolean(true).end();
    // Values that double 40 times, and the same in front of one that cannot be read.
    Amf doubled = Amf().string("onMetaData").object().name("a").object().end();
    for (std::uint16_t i = 1; i <= 40; ++i)
        doubled.name("b").object().name("c").reference(i).name("d").reference(i).end();
    Amf unreadable = doubled.end();
    unreadable.raw("\x0E");

    RepairRules rules;
    for (const Amf& amf : {text, doubled, unreadable}) {
        krx::streams::VideoValidationParameters parameters;
        for (const bool repairs : {false, true}) {
            parameters.fixMetaData = repairs;
            EXPECT_EQ(rules.broken(ZmvBuilder(0).data(0, amf).bytes(), parameters), "") << amf.bytes().size();
        }
    }
    EXPECT_EQ(rules.copies, 2U);
}

TEST(ZmvProperties, DamagedFiles)
{
    const unsigned long cases = setting("VIDLINT_PROPERTY_CASES", 4000);
    const auto samples = krx::test::zmvSamples();
    ZmvGenerator generator(static_cast<std::uint32_t>(setting("VIDLINT_PROPERTY_SEED", 1)));
    RepairRules rules;
    std::map<std::string, unsigned> problems;
    for (unsigned long i = 0; i < cases; ++i) {
        const std::string file =
            i % 4 != 0 ? generator.file() : generator.damaged(samples[i / 4 % samples.size()].bytes);
        krx::streams::VideoValidationParameters parameters;
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
