// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/support/rawbuilder.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>

namespace krx::test {

RawBuilder& RawBuilder::segment(const std::vector<RawMessage>& messages)
{
    SegmentBounds next;
    if (!bounds.empty()) {
        next.start = bounds.back().end + 1;
        next.startTime = bounds.back().endTime;
    } else if (!messages.empty()) {
        next.startTime = messages.front().time;
    }
    next.end = next.start + static_cast<long long>(messages.size()) - 1;
    std::string content;
    for (const RawMessage& message : messages) {
        content += messageBytes(message);
        next.endTime = std::max(next.endTime, message.time + 1);
    }
    size += static_cast<std::int64_t>(content.size());
    bounds.push_back(next);
    segments[fileName(next.start)] = content;
    return *this;
}

RawBuilder& RawBuilder::context(const RawContext& context)
{
    contexts.push_back(context);
    return *this;
}

RawBuilder& RawBuilder::metadata(const std::string& body)
{
    RawContext metadata;
    metadata.bytes = body;
    return context(metadata);
}

std::string RawBuilder::index() const
{
    std::string out;
    putBigEndian(out, version, 4);
    putBigEndian(out, type, 1);
    putBigEndian(out, static_cast<std::uint64_t>(size), 8);
    putBigEndian(out, bounds.size(), 4);
    for (const SegmentBounds& segment : bounds) {
        putBigEndian(out, static_cast<std::uint64_t>(segment.start), 8);
        putBigEndian(out, static_cast<std::uint64_t>(segment.end), 8);
        putBigEndian(out, segment.startTime, 4);
        putBigEndian(out, segment.endTime, 4);
    }
    return out;
}

std::string RawBuilder::contextBytes(const RawContext& context)
{
    std::string blob("\x20");
    putBigEndian(blob, context.bytes.size(), 4);
    blob += context.bytes;
    Amf amf;
    amf.object();
    amf.name("messageType").number(context.messageType);
    amf.name("time").number(context.time);
    amf.name("buffer").raw(blob);
    amf.name("position").number(context.position);
    amf.name("trackID").number(context.trackId);
    amf.name("contextType").number(context.contextType).end();
    return amf.bytes();
}

std::string RawBuilder::contextsFile(const std::vector<std::string>& elements)
{
    Amf amf;
    amf.ecmaArray();
    for (const std::string& element : elements)
        amf.name("").raw(element);
    amf.end();
    return elements.empty() ? std::string() : amf.bytes();
}

std::string RawBuilder::contextsFile() const
{
    std::vector<std::string> elements;
    std::transform(contexts.begin(), contexts.end(), std::back_inserter(elements), contextBytes);
    return contextsFile(elements);
}

std::map<std::string, std::string> RawBuilder::files() const
{
    std::map<std::string, std::string> all = segments;
    all["index"] = index();
    all["contexts"] = contextsFile();
    return all;
}

std::string RawBuilder::fileName(long long start)
{
    std::array<char, 17> name{};
    std::snprintf(name.data(), name.size(), "%016llX", static_cast<unsigned long long>(start) & 0xFFFFFFFF);
    return name.data();
}

void RawBuilder::write(const std::map<std::string, std::string>& files, const std::string& directory)
{
    std::filesystem::create_directories(directory);
    for (const auto& [name, content] : files)
        std::ofstream(std::filesystem::path(directory) / name, std::ios::binary | std::ios::trunc) << content;
}

RawMessage rawAudio(std::uint32_t time, const std::string& body)
{
    RawMessage message;
    message.type = ZmvBuilder::kAudio;
    message.time = time;
    message.payload = body;
    return message;
}

RawMessage rawVideo(std::uint32_t time, const std::string& body)
{
    RawMessage message;
    message.time = time;
    message.payload = body;
    return message;
}

RawBuilder smallRecording()
{
    RawBuilder builder;
    builder.metadata(metaData(0.1));
    builder.segment({rawAudio(0), rawVideo(0), rawAudio(20)});
    builder.segment({rawVideo(40), rawAudio(40), rawVideo(60)});
    return builder;
}

}  // namespace krx::test
