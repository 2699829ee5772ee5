// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

// Checks the documents: the bytes in docs/formats.md are those of the samples, blocks that begin with "$ "
// show what their commands print (those of docs/archive.md one after the other in one shell), code is that of
// the examples, and links have targets.

#include "tests/support/tempdir.h"
#include "tests/support/writesamples.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>
#include <string>

namespace krx::test {
namespace {

namespace fs = std::filesystem;
using Matches = std::sregex_iterator;

/// A block of C++.
const std::regex kProgram("```cpp(\n[^`]*)```");

std::string pageText(const fs::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

TEST(Documents, TellTheBytesOfTheSamples)
{
    static const std::regex part(R"(Bytes of `([^`]+)`:|\n\| (\d*) ?\| ((?:[0-9A-F]{2} )+|\.\.\. )\|)");
    const std::string page = pageText(PROJECT_DIR "/docs/formats.md");
    std::string sample;
    std::size_t next = 0;  // offset of the row, unless the row before leaves bytes out
    std::size_t compared = 0;
    for (Matches row(page.begin(), page.end(), part), end; row != end; ++row) {
        if ((*row)[1].matched) {
            sample = pageText(fs::path(PROJECT_DIR) / (*row)[1].str());
            next = 0;
        } else if ((*row)[2].length() == 0) {
            next = std::string::npos;
        } else {
            EXPECT_TRUE(next == std::string::npos || next == std::stoul((*row)[2])) << row->str();
            next = std::stoul((*row)[2]);
            std::istringstream bytes((*row)[3]);
            for (int byte = 0; bytes >> std::hex >> byte; ++next, ++compared)
                EXPECT_EQ(next < sample.size() ? sample[next] & 0xFF : -1, byte) << row->str();
        }
    }
    EXPECT_GT(compared, 600U);
}

/// What a shell prints in the directory of the samples.
std::string run(const std::string& script)
{
    const TempDir dir;
    writeSamples(dir.bytes("samples"));
    std::ofstream(dir.bytes("script")) << "PATH=" VIDLINT_DIR ":$PATH; cd '" << dir.path() << "'\n" << script;
    EXPECT_NE(std::system(("sh " + dir.bytes("script") + " >" + dir.bytes("out") + " 2>&1").c_str()), -1);
    return pageText(dir.bytes("out"));
}

/// Without times and the line ends at the end.
std::string steady(const std::string& text)
{
    static const std::regex varying("\\d\\d-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d|\n+$");
    return std::regex_replace(text, varying, "");
}

TEST(Documents, ShowWhatTheProgramPrints)
{
    static const std::regex code("(?:    [^\n]*\n+)+");
    static const std::regex line("    (?:\\$ ([^\n]*\n)|([^\n]*\n+))");
    const bool hasArchive = fs::exists(VIDLINT_DIR "/vidlint-archive");
    for (const char* name : {"README.md", "docs/formats.md", "docs/archive.md"}) {
        const std::string page = pageText(fs::path(PROJECT_DIR) / name);
        const bool isSession = name == std::string("docs/archive.md");
        std::string session;
        std::string shownInSession;
        for (Matches block(page.begin(), page.end(), code), end; block != end; ++block) {
            const std::string script = std::regex_replace(block->str(), line, "$1");
            const std::string shown = steady(std::regex_replace(block->str(), line, "$2"));
            const bool needsArchive = isSession || script.find("vidlint-archive") != std::string::npos;
            if (script.empty() || (needsArchive && !hasArchive))
                continue;
            session += script;
            shownInSession += shown + (shown.empty() ? "" : "\n");
            if (!isSession) {
                EXPECT_EQ(steady(run(script)), shown);
            }
        }
        if (isSession) {
            EXPECT_EQ(steady(run(session)), steady(shownInSession));
        }
    }
    for (const char* command :
         {"vidlint --help", "vidlint-archive check --quiet --min-age 0 --state archive.state archive"})
        EXPECT_NE(pageText(PROJECT_DIR "/README.md").find(std::string("    $ ") + command + "\n"),
                  std::string::npos);
}

TEST(Documents, ShowCodeOfTheExamples)
{
    static const std::regex indent("\n +");
    std::string examples;
    for (const fs::directory_entry& entry : fs::directory_iterator(PROJECT_DIR "/examples"))
        examples += std::regex_replace(pageText(entry.path()), indent, "\n");
    const std::string page = pageText(PROJECT_DIR "/docs/library.md");
    std::size_t blocks = 0;
    for (Matches block(page.begin(), page.end(), kProgram), end; block != end; ++block, ++blocks)
        EXPECT_NE(examples.find(std::regex_replace((*block)[1].str(), indent, "\n")), std::string::npos)
            << block->str();
    EXPECT_GT(blocks, 8U);
}

TEST(Documents, LinkToWhatExists)
{
    static const std::regex link(R"(\]\(([^):#]+)(?:#[^)]*)?\))");
    std::size_t links = 0;
    for (fs::recursive_directory_iterator it(PROJECT_DIR), end; it != end; ++it) {
        if (it->path().filename() == "build" || it->path().filename() == ".git")
            it.disable_recursion_pending();
        const bool isPage = it->path().extension() == ".md";
        const std::string text = isPage ? std::regex_replace(pageText(it->path()), kProgram, "") : "";
        for (Matches found(text.begin(), text.end(), link), last; found != last; ++found, ++links) {
            const fs::path target = it->path().parent_path() / (*found)[1].str();
            EXPECT_TRUE(fs::exists(fs::symlink_status(target))) << it->path() << ": " << target;
        }
    }
    EXPECT_GT(links, 80U);
}

}  // namespace
}  // namespace krx::test
