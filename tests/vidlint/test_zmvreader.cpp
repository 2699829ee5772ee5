// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/streamparseerror.h"
#include "tests/support/memoryfileio.h"
#include "tools/zmvutil/vidlint/src/zmvreader.h"

#include <gtest/gtest.h>

#include <string>

namespace krx::test {
namespace {

using streams::StreamParseError;

constexpr std::size_t kWindow = 1024 * 1024;

std::string pattern(std::size_t n)
{
    std::string bytes(n, '\0');
    for (std::size_t i = 0; i < n; ++i)
        bytes[i] = static_cast<char>(i * 7 + i / 251);
    return bytes;
}

std::string taken(ZmvReader& reader, std::size_t n)
{
    const unsigned char* bytes = reader.take(n);
    return {bytes, bytes + n};
}

/// The status of the fault that an operation throws; 0 when it throws none.
template <typename Operation>
int faultOf(Operation operation)
{
    try {
        operation();
        return 0;
    } catch (const StreamParseError& e) {
        return e.getStatus();
    }
}

TEST(ZmvReader, GivesTheBytesWhereverTheWindowEnds)
{
    const std::string content = pattern(3 * kWindow + 100);
    for (const unsigned maxRead : {1000000000U, 70000U}) {
        MemoryFileIo io(content);
        io.maxRead = maxRead;
        ZmvReader reader(io, SRString(L"in"));
        ASSERT_EQ(reader.length(), static_cast<long long>(content.size()));
        EXPECT_EQ(taken(reader, 11), content.substr(0, 11));
        reader.pass(kWindow - 15);
        EXPECT_EQ(taken(reader, 11), content.substr(kWindow - 4, 11));
        EXPECT_EQ(taken(reader, kWindow + 5), content.substr(kWindow + 7, kWindow + 5));
        EXPECT_EQ(reader.position(), static_cast<long long>(2 * kWindow + 12));

        EXPECT_TRUE(reader.seek(1));
        EXPECT_EQ(taken(reader, 3), content.substr(1, 3));
        EXPECT_FALSE(reader.seek(-1));
        EXPECT_EQ(reader.position(), 4);
        reader.pass(3 * kWindow);
        EXPECT_EQ(taken(reader, 96), content.substr(3 * kWindow + 4));
        EXPECT_EQ(faultOf([&] { reader.take(1); }), streams::kFileReadError);
        EXPECT_TRUE(reader.seek(1LL << 40));
        EXPECT_EQ(faultOf([&] { reader.pass(1); }), streams::kFileReadError);

        std::string copy;
        reader.seek(5);
        while (copy.size() < content.size() - 5) {
            const auto some = reader.takeSome(1LL << 40);
            copy.append(some.begin(), some.end());
        }
        EXPECT_EQ(copy, content.substr(5));
    }
}

}  // namespace
}  // namespace krx::test
