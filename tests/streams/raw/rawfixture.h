// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/raw/rawData.h"
#include "tests/support/memoryfileio.h"
#include "tests/support/rawbuilder.h"
#include "tests/support/recordingcontext.h"

namespace krx::test {

constexpr const char* kDir = "rec";

/// Keeps the findings, and counts what it is asked.
struct KeptFindings : streams::FindingSink
{
    std::vector<streams::Finding> findings{};
    unsigned asked = 0;
    unsigned mostWarnings = 0xFFFFFFFF;  ///< that are admitted

    bool admitsWarning() override { return asked++ < mostWarnings; }
    void add(const streams::Finding& finding) override { findings.push_back(finding); }
};

/// A stream in memory with all that surrounds it.
struct RawFixture
{
    explicit RawFixture(const std::map<std::string, std::string>& files,
                        const raw::RawConfigStruct& config = {})
        : data(SRString::fromMultiByte(kDir), config, &context, &io)
    {
        setFiles(files);
    }

    void setFiles(const std::map<std::string, std::string>& files)
    {
        io.files.clear();
        for (const auto& [name, content] : files)
            io.files[std::string(kDir) + '/' + name] = content;
    }

    MemoryFileIo io;
    RecordingContext context{&io};
    RecordingHolder holder;
    raw::RawData data;
};

/// The line of an error about the stream.
inline RecordingContext::Line errorLine(const std::string& text)
{
    return {2, text + '\t' + kDir};
}

}  // namespace krx::test
