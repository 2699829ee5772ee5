// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "interfaces/ISegmentHolder.h"
#include "tests/support/zmvbuilder.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace krx::test {

/// A record of a segment file; length and footer may be wrong.
using RawMessage = ZmvBuilder::Message;

/// One element of a contexts file.
struct RawContext
{
    unsigned messageType = ZmvBuilder::kData;
    unsigned time = 0;
    std::string bytes;
    double position = -2;
    unsigned trackId = 2;
    unsigned contextType = 1;
};

/// The files of a recorded stream. Values derived from the messages can be changed afterwards, to make files
/// that contradict each other.
class RawBuilder
{
public:
    /// Appends a segment: one index record and one file. Its end time is one past the
    /// largest time in it.
    RawBuilder& segment(const std::vector<RawMessage>& messages);
    RawBuilder& context(const RawContext& context);
    /// The first "onMetaData" of the stream.
    RawBuilder& metadata(const std::string& body);

    std::uint32_t version = 0x10000;
    std::uint8_t type = 5;
    std::int64_t size = 0;
    std::vector<SegmentBounds> bounds;
    std::map<std::string, std::string> segments;  ///< content by file name
    std::vector<RawContext> contexts;

    std::string index() const;
    std::string contextsFile() const;
    /// The content of all files by name.
    std::map<std::string, std::string> files() const;

    /// The name of a segment file.
    static std::string fileName(long long start);
    /// A contexts file of the given elements, each already in AMF0.
    static std::string contextsFile(const std::vector<std::string>& elements);
    static std::string contextBytes(const RawContext& context);
    /// Writes the files to a directory, which is created.
    static void write(const std::map<std::string, std::string>& files, const std::string& directory);
};

RawMessage rawAudio(std::uint32_t time, const std::string& body = "\x2A\x2A\x2A\x2A");
RawMessage rawVideo(std::uint32_t time, const std::string& body = "\x17\x17\x17\x17\x17\x17");

/// Two segments of three messages and metadata.
RawBuilder smallRecording();

}  // namespace krx::test
