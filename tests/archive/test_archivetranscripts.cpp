// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

// Runs vidlint-archive as a user does. The folder of a transcript holds the folder "samples" and in "encoded"
// files of a general encoder, all of which seem old enough to be checked. $PRELOAD is the library that makes
// system calls fail (tests/faults/preload.cpp).

#include "tests/support/transcript.h"
#include "tests/support/writesamples.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <filesystem>
#include <string>
#include <sys/stat.h>

namespace krx::test {
namespace {

namespace fs = std::filesystem;

void makeOld(const std::string& folder)
{
    constexpr timespec kTimes[2] = {{1'500'000'000, 0}, {1'500'000'000, 0}};
    for (const auto& entry : fs::recursive_directory_iterator(folder))
        ASSERT_EQ(::utimensat(AT_FDCWD, entry.path().c_str(), kTimes, AT_SYMLINK_NOFOLLOW), 0)
            << entry.path();
}

class ArchiveTranscripts : public testing::TestWithParam<const char*>
{
};

TEST_P(ArchiveTranscripts, PrintWhatIsExpected)
{
    const TempDir dir;
    dir.makeDir("work");
    writeSamples(dir.bytes("work/samples"));
    fs::copy(ENCODED_DIR, dir.bytes("work/encoded"));
    makeOld(dir.bytes("work"));
    expectTranscript({std::string(TRANSCRIPTS_DIR "/") + GetParam() + ".transcript",
                      ARCHIVE_DIR,
                      {{"PRELOAD", FAULTS_PRELOAD}}},
                     dir);
}

INSTANTIATE_TEST_SUITE_P(Archive, ArchiveTranscripts,
                         testing::Values("commands", "samples", "status", "search", "shards", "state",
                                         "trouble", "names"),
                         [](const auto& transcript) { return std::string(transcript.param); });

}  // namespace
}  // namespace krx::test
