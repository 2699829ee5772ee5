// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/support/zmvbuilder.h"

#include "util/messagerecord.h"

namespace krx::test {

void putBigEndian(std::string& out, std::uint64_t value, int n)
{
    while (n-- > 0)
        out += static_cast<char>(value >> (8 * n));
}

std::string metaData(double duration, bool canSeekToEnd)
{
    Amf amf;
    amf.string("onMetaData").ecmaArray(2);
    amf.name("duration").number(duration).name("canSeekToEnd").boolean(canSeekToEnd).end();
    return amf.bytes();
}

std::string messageBytes(const ZmvBuilder::Message& message)
{
    const auto length =
        message.length >= 0 ? static_cast<std::uint64_t>(message.length) : message.payload.size();
    unsigned char header[krx::util::RecordHeader::kSize];
    krx::util::RecordHeader{message.type, static_cast<unsigned>(length), message.time, message.streamId}
        .store(header);
    std::string out(std::begin(header), std::end(header));
    out += message.payload;
    const unsigned size = krx::util::backPointerOf(static_cast<unsigned>(length));
    putBigEndian(out, message.footer >= 0 ? static_cast<std::uint64_t>(message.footer) : size, 4);
    return out;
}

ZmvBuilder::ZmvBuilder(std::uint8_t flags, std::uint8_t version, std::uint32_t headerLength) : m_bytes("ZMV")
{
    putBigEndian(m_bytes, version, 1);
    putBigEndian(m_bytes, flags, 1);
    putBigEndian(m_bytes, headerLength, 4);
    if (headerLength == 9)
        putBigEndian(m_bytes, 0, 4);
}

ZmvBuilder& ZmvBuilder::message(const Message& message)
{
    return raw(messageBytes(message));
}

ZmvBuilder& ZmvBuilder::audio(std::uint32_t time, std::size_t length)
{
    Message audio;
    audio.type = kAudio;
    audio.time = time;
    audio.payload.assign(length, '\x2A');
    return message(audio);
}

ZmvBuilder& ZmvBuilder::video(std::uint32_t time, std::size_t length)
{
    Message video;
    video.time = time;
    video.payload.assign(length, '\x17');
    return message(video);
}

ZmvBuilder& ZmvBuilder::data(std::uint32_t time, const Amf& body, std::uint8_t type)
{
    return data(time, body.bytes(), type);
}

ZmvBuilder& ZmvBuilder::data(std::uint32_t time, const std::string& payload, std::uint8_t type)
{
    Message data;
    data.type = type;
    data.time = time;
    data.payload = payload;
    return message(data);
}

ZmvBuilder& ZmvBuilder::raw(std::string_view bytes)
{
    m_bytes += bytes;
    return *this;
}

}  // namespace krx::test
