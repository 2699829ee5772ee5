// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <bit>
#include <cstdint>
#include <string>
#include <string_view>

namespace krx::test {

/// Appends the low n bytes of a value, most significant first.
void putBigEndian(std::string& out, std::uint64_t value, int n);

/// AMF0 data, piece by piece and without any check, so wrong data can be made too.
class Amf
{
public:
    Amf& number(double value) { return put(0, 1).put(std::bit_cast<std::uint64_t>(value), 8); }
    Amf& boolean(bool value) { return put(1, 1).put(value ? 1 : 0, 1); }
    Amf& string(std::string_view text) { return put(2, 1).name(text); }
    Amf& null() { return put(5, 1); }
    /// Marker; properties and end() follow.
    Amf& object() { return put(3, 1); }
    /// Marker and count; properties and end() follow.
    Amf& ecmaArray(std::uint32_t count = 0) { return put(8, 1).put(count, 4); }
    /// Marker and count; count values follow.
    Amf& strictArray(std::uint32_t count) { return put(10, 1).put(count, 4); }
    Amf& typedObject(std::string_view className) { return put(16, 1).name(className); }
    Amf& reference(std::uint16_t index) { return put(7, 1).put(index, 2); }
    /// A property's name; its value follows.
    Amf& name(std::string_view text) { return put(text.size(), 2).raw(text); }
    /// Of an object or ECMA array.
    Amf& end() { return put(9, 3); }
    Amf& raw(std::string_view bytes)
    {
        m_bytes += bytes;
        return *this;
    }

    const std::string& bytes() const { return m_bytes; }

private:
    Amf& put(std::uint64_t value, int n)
    {
        putBigEndian(m_bytes, value, n);
        return *this;
    }

    std::string m_bytes;
};

/// The payload of a usual onMetaData message: an ECMA array with duration (seconds) and canSeekToEnd.
std::string metaData(double duration, bool canSeekToEnd = true);

/// A ZMV file, message by message. Everything is written as given. Wrong lengths and back-pointers are set
/// through Message or raw().
class ZmvBuilder
{
public:
    enum Type : std::uint8_t
    {
        kAudio = 8,
        kVideo = 9,
        kDataAmf3 = 15,
        kData = 18,
        kEncrypted = 32,
    };
    struct Message
    {
        std::uint8_t type = kVideo;
        std::uint32_t time = 0;  ///< ms
        std::string payload;
        std::uint32_t streamId = 0;
        std::int64_t length = -1;  ///< in the header; -1: the payload's
        std::int64_t footer = -1;  ///< back-pointer; -1: the length + 11
    };

    /// The header, and the first back-pointer when the header has 9 bytes.
    explicit ZmvBuilder(std::uint8_t flags = 5, std::uint8_t version = 1, std::uint32_t headerLength = 9);

    ZmvBuilder& message(const Message& message);
    ZmvBuilder& audio(std::uint32_t time, std::size_t length = 4);
    ZmvBuilder& video(std::uint32_t time, std::size_t length = 6);
    ZmvBuilder& data(std::uint32_t time, const Amf& body, std::uint8_t type = kData);
    ZmvBuilder& data(std::uint32_t time, const std::string& payload, std::uint8_t type = kData);
    ZmvBuilder& raw(std::string_view bytes);

    const std::string& bytes() const { return m_bytes; }

private:
    std::string m_bytes;
};

/// The bytes of a message with its back-pointer.
std::string messageBytes(const ZmvBuilder::Message& message);

}  // namespace krx::test
