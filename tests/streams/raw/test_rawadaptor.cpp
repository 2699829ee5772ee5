// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/raw/rawModule.h"
#include "tests/streams/raw/rawfixture.h"

#include <gtest/gtest.h>

#include <utility>

namespace krx::test {
namespace {

using raw::RawAdaptor;

TEST(RawAdaptorTest, TheMetadataStandsInFrontOfThePositionsOnTrackTwo)
{
    const std::pair<std::vector<RawContext>, std::string> cases[] = {
        {{}, "none"},
        {{{18, 0, "a", -1, 2, 1}}, "none"},
        {{{18, 0, "a", -2, 3, 1}}, "none"},
        {{{18, 0, "a", -2, 2, 2}}, "none"},
        {{{18, 0, "a", -2, 2, 1}, {18, 9, "b", -1, 2, 1}}, "a"},
        {{{18, 0, "a", -2, 3, 1}, {8, 9, "b", -7, 2, 1}, {8, 9, "", 4, 1, 1}}, "b"},
        {{{18, 0, std::string(16385, 'x'), -2, 2, 1}}, "none"},
    };
    for (const auto& [contexts, expected] : cases) {
        RawBuilder builder = smallRecording();
        builder.contexts = contexts;
        MemoryFileIo io;
        for (const auto& [name, content] : builder.files())
            io.files["rec/" + name] = content;
        RecordingContext context(&io);
        RawAdaptor adaptor(&context);
        void* handle = nullptr;
        ASSERT_EQ(adaptor.open(nullptr, "rec", 0, nullptr, handle), 0);
        std::string body(16384, '?');
        auto size = static_cast<unsigned>(body.size());
        const bool found = adaptor.getAttribute(handle, kAttrMetadata, body.data(), size);
        EXPECT_EQ(found ? body.substr(0, size) : "none", expected);
        adaptor.close(handle);
    }
}

}  // namespace
}  // namespace krx::test
