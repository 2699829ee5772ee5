// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

// Checks that the catalogue, docs/faults.md and samples/faults agree: every number has a section, and a
// sample that shows it unless the section says why there is none.

#include "modules/streams/mp4/mp4Data.h"
#include "modules/streams/streamparseerror.h"
#include "server/KRXSyncFileIo.h"
#include "tests/support/findingcollector.h"
#include "tests/support/tempdir.h"
#include "tests/support/writesamples.h"
#include "tests/vidlint/inputrunner.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace krx::test {
namespace {

namespace fs = std::filesystem;

/// Files with their content and links with their target, by relative path.
std::map<std::string, std::string> treeOf(const fs::path& root)
{
    std::map<std::string, std::string> tree;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root)) {
        std::string& content = tree[entry.path().lexically_relative(root).string()];
        if (entry.is_symlink()) {
            content = "-> " + fs::read_symlink(entry.path()).string();
        } else if (entry.is_regular_file()) {
            std::ifstream in(entry.path(), std::ios::binary);
            content.assign(std::istreambuf_iterator<char>(in), {});
        }
    }
    return tree;
}

/// The number that a sample's name begins with.
int numberOf(const std::string& name)
{
    return std::atoi(name.c_str());
}

/// The inputs that show findings.
std::vector<std::string> faultSamples()
{
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(SAMPLES_DIR "/faults"))
        if (entry.path().extension() != ".new")
            names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

/// One number of the page: its fields by name.
using Section = std::map<std::string, std::string>;

std::map<int, Section> pageSections()
{
    static const std::regex heading("### (-?)(\\d+)");
    static const std::regex field("- \\*\\*([^*]+):\\*\\* (.*)");
    std::map<int, Section> sections;
    Section* section = nullptr;
    std::string* text = nullptr;
    std::ifstream page(FAULTS_PAGE);
    std::smatch match;
    for (std::string line; std::getline(page, line);) {
        if (std::regex_match(line, match, heading)) {
            EXPECT_EQ(sections.count(std::stoi(match[2])), 0U) << line;
            section = &sections[std::stoi(match[2])];
        } else if (section && std::regex_match(line, match, field)) {
            text = &(*section)[match[1]];
            *text = match[2];
        } else if (text && line.rfind("  ", 0) == 0) {
            *text += line.substr(1);
        }
    }
    return sections;
}

TEST(Samples, AreWhatTheBuilderMakes)
{
    const TempDir made;
    writeSamples(made.path());
    auto committed = treeOf(SAMPLES_DIR);
    for (const char* text : {"README.md", "expected.txt"})
        committed.erase(text);
    const auto expected = treeOf(made.path());
    for (const auto& [name, content] : expected) {
        EXPECT_TRUE(committed[name] == content) << name << ": run make_samples to write the samples anew";
        EXPECT_LT(content.size(), 4096U) << name;
        committed.erase(name);
    }
    for (const auto& [name, content] : committed)
        ADD_FAILURE() << name << ": no builder makes it";
}

/// The findings of the MP4 module, including warnings, which the report does not show.
std::set<int> mp4Findings(const std::string& path)
{
    FindingCollector sink;
    SimpleKrxSyncFileIo io;
    mp4::Mp4Data data(SRMBString(path.c_str()), nullptr, &io, 0, {});
    data.getFile().setFindingSink(&sink);
    const mp4::AutoMp4Open open(data.getFileIO());
    try {
        data.subInitPlayback(mp4::kFirstLoad);
    } catch (const streams::StreamParseError& error) {
        sink.add(makeFinding(error, streams::FindingLevel::kError));
    }
    const std::vector<int> statuses = sink.statuses();
    return {statuses.begin(), statuses.end()};
}

TEST(Faults, EverySampleShowsItsNumber)
{
    const TempDir dir;
    writeSamples(dir.path());
    for (const std::string& name : faultSamples()) {
        const int number = numberOf(name);
        const std::string path = dir.bytes("faults/" + name);
        ReportCapture capture;
        VideoValidationJob job(capture.writer());
        job.parameters = parametersFor("w");
        job.files = {path};
        (void)job.validateAllFiles();
        const std::string report = capture.text();
        const bool isShown = report.find("\t-" + std::to_string(number) + "\t") != std::string::npos;
        if (fs::path(name).extension() == ".mp4" && number >= streams::kMetadataDuration) {
            EXPECT_EQ(mp4Findings(path).count(number), 1U) << name;
            EXPECT_TRUE(isShown || report.find("\t-") == std::string::npos) << report;
        } else {
            EXPECT_TRUE(isShown) << name << ": " << report;
        }
    }
}

TEST(Faults, PageHasEveryNumber)
{
    std::map<int, Section> sections = pageSections();
    std::map<int, std::set<std::string>> samples;
    for (const std::string& name : faultSamples())
        samples[numberOf(name)].insert(name);

    static const std::regex link("\\(\\.\\./samples/faults/([^)]+)\\)");
    for (auto entry = streams::catalogueBegin(); entry != streams::catalogueEnd(); ++entry) {
        const int number = entry->status;
        SCOPED_TRACE(number);
        Section& section = sections[number];
        for (const char* name :
             {"Kind", "Text", "Means", "How it comes", "What a player does", "Repair", "Sample"})
            EXPECT_FALSE(section[name].empty()) << name;
        const std::string text = SRString(entry->text).toMultiByte().c_str();
        EXPECT_EQ(section["Text"], "`" + text.substr(text.find('\t') + 1) + "`");

        std::set<std::string> linked;
        const std::string& told = section["Sample"];
        for (std::sregex_iterator it(told.begin(), told.end(), link), end; it != end; ++it)
            linked.insert((*it)[1]);
        EXPECT_EQ(linked, samples[number]);
        EXPECT_EQ(told.rfind("none: ", 0) == 0, linked.empty()) << told;
        sections.erase(number);
        samples.erase(number);
    }
    EXPECT_TRUE(sections.empty()) << "no such number: " << sections.begin()->first;
    EXPECT_TRUE(samples.empty()) << "no such number: " << samples.begin()->first;
}

}  // namespace
}  // namespace krx::test
