// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/support/tempdir.h"
#include "util/fileholes.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

namespace krx::test {
namespace {

constexpr util::FilePos kBlock = 1 << 16;

/// Blocks 1 and 3 of five hold data.
TEST(FileHoles, TellDataFromHoles)
{
    const TempDir dir;
    const util::SRAutoFile file(::open(dir.bytes("f").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    ASSERT_EQ(::ftruncate(file.get(), 5 * kBlock), 0);
    const std::string block(kBlock, 'x');
    for (const util::FilePos i : {1, 3})
        ASSERT_EQ(::pwrite(file.get(), block.data(), block.size(), i * kBlock), kBlock);
    util::FileHoles holes(file.get(), 5 * kBlock);
    if (!holes.hasHole())
        GTEST_SKIP() << "the file system tells of no holes";
    const struct
    {
        util::FilePos pos;
        util::FilePos n;
        bool isData;
    } cases[] = {
        {kBlock, kBlock, true},      {kBlock + 5, 10, true},
        {2 * kBlock - 1, 2, false},  {0, 1, false},
        {kBlock - 1, 2, false},      {3 * kBlock, kBlock, true},
        {3 * kBlock - 1, 1, false},  {4 * kBlock, 1, false},
        {4 * kBlock, 0, true},       {kBlock, kBlock + 1, false},
        {kBlock, 3 * kBlock, false}, {2 * kBlock - 1, 1, true},
    };
    for (const auto& c : cases)
        EXPECT_EQ(holes.isData(c.pos, c.n), c.isData) << c.pos << ' ' << c.n;
}

TEST(FileHoles, AreNoneWhereNothingTellsOfThem)
{
    const TempDir dir;
    dir.write("f", "data");
    const util::SRAutoFile file(::open(dir.bytes("f").c_str(), O_RDONLY | O_CLOEXEC));
    for (const int fd : {file.get(), -1, 1'000'000}) {
        util::FileHoles holes(fd, 4);
        EXPECT_FALSE(holes.hasHole()) << fd;
        EXPECT_TRUE(holes.isData(0, 4)) << fd;
    }
}

}  // namespace
}  // namespace krx::test
