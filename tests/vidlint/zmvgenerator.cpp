// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/vidlint/zmvgenerator.h"

#include <algorithm>
#include <array>
#include <bit>
#include <limits>
#include <string_view>
#include <vector>

namespace krx::test {
namespace {

using namespace std::string_view_literals;

constexpr unsigned kDeepest = 4;

constexpr std::array<const char*, 8> kNames{"duration", "canSeekToEnd", "width", "keyframes",
                                            "Duration", "canseektoend", "",      "creator"};

std::string u29(std::uint32_t value)
{
    if (value < 0x80)
        return {static_cast<char>(value)};
    return {static_cast<char>(0x80 | value >> 7), static_cast<char>(value & 0x7F)};
}

std::string bytesOf(double value)
{
    std::string bytes;
    putBigEndian(bytes, std::bit_cast<std::uint64_t>(value), 8);
    return bytes;
}

}  // namespace

std::string ZmvGenerator::file()
{
    // The times first: metadata states the last one.
    std::vector<ZmvBuilder::Message> messages(1 + below(12));
    const bool inOrder = !oneIn(3);
    std::uint32_t last[3] = {};
    std::uint32_t time = oneIn(10) ? 0xFFFFFFF0 - below(5000) : 0;
    for (ZmvBuilder::Message& message : messages) {
        constexpr std::uint8_t kTypes[] = {8, 8, 8, 9, 9, 9, 15, 18};
        message.type = pick(kTypes);
        time = nextTime(time);
        std::uint32_t& before = last[message.type == 8 ? 0 : message.type == 9 ? 1 : 2];
        message.time = before = inOrder || !oneIn(20) ? std::max(time, before) : time;
        if (oneIn(30))
            message.type |= ZmvBuilder::kEncrypted;
    }
    m_duration = messages.back().time / 1000.0;

    constexpr std::uint8_t kFlags[] = {5, 5, 5, 0, 1, 4};
    ZmvBuilder zmv(pick(kFlags));
    for (ZmvBuilder::Message& message : messages) {
        const unsigned kind = message.type & ~unsigned{ZmvBuilder::kEncrypted};
        if (kind == ZmvBuilder::kAudio || kind == ZmvBuilder::kVideo)
            message.payload.assign(oneIn(4) ? 0 : 1 + below(6), 'm');
        else
            message.payload = dataPayload(kind == ZmvBuilder::kDataAmf3);
        zmv.message(message);
    }
    return oneIn(12) ? damaged(zmv.bytes()) : zmv.bytes();
}

std::uint32_t ZmvGenerator::nextTime(std::uint32_t time)
{
    constexpr std::uint32_t kGaps[] = {0, 1, 20, 40, 40, 500, 2001, 6000, 50000};
    // Now and then a message of another track is late.
    return oneIn(5) ? time - std::min(time, below(3000)) : time + pick(kGaps);
}

std::string ZmvGenerator::damaged(std::string file)
{
    for (unsigned n = 1 + below(3); n > 0 && !file.empty(); --n) {
        const std::uint32_t at = below(static_cast<std::uint32_t>(file.size()));
        switch (below(5)) {
            case 0:
                file.resize(at);
                break;
            case 1:
                file.insert(at, file.substr(at, below(20)));
                break;
            case 2:
                file[at] = static_cast<char>(file[at] ^ 1 << below(8));
                break;
            default:
                file[at] = static_cast<char>(below(oneIn(2) ? 256 : 20));
                break;
        }
    }
    return file;
}

std::string ZmvGenerator::dataPayload(bool isAMF3)
{
    Amf out;
    if (isAMF3)
        out.raw({"\0\x2A", oneIn(9) ? 0U : 1U});
    out.string(oneIn(6) ? "onCuePoint" : "onMetaData");
    list(out);
    while (oneIn(6))
        value(out, 0);
    return oneIn(12) ? out.bytes().substr(0, below(static_cast<std::uint32_t>(out.bytes().size())))
                     : out.bytes();
}

void ZmvGenerator::list(Amf& out)
{
    switch (below(12)) {
        case 0:
            value(out, 0);
            break;
        case 1:
            out.raw("\x11\x09\1");
            amf3Entries(out, 1);
            break;
        case 2:
            out.object();
            doubling(out);
            entries(out, 1);
            break;
        case 3:
        case 4:
        case 5:
            out.ecmaArray(below(3));
            entries(out, 1);
            break;
        default:
            out.object();
            entries(out, 1);
            break;
    }
}

void ZmvGenerator::entries(Amf& out, unsigned depth)
{
    for (unsigned n = below(5); n > 0; --n) {
        constexpr double kWrong[] = {0, 30, 1e300, -1, std::numeric_limits<double>::quiet_NaN()};
        out.name(pick(kNames));
        switch (below(6)) {
            case 0:
                out.number(m_duration);
                break;
            case 1:
                out.number(pick(kWrong));
                break;
            case 2:
                out.boolean(!oneIn(3));
                break;
            default:
                value(out, depth);
                break;
        }
    }
    out.end();
}

void ZmvGenerator::value(Amf& out, unsigned depth)
{
    // Null, undefined, unsupported, true, texts, a date, XML, bytes and a 64-bit integer.
    constexpr std::string_view kPlain[] = {"\5"sv,
                                           "\6"sv,
                                           "\x0D"sv,
                                           "\1\1"sv,
                                           "\2\0\1\x37"sv,
                                           "\x0B\x42\0\0\0\0\0\0\0\1"sv,
                                           "\x0F\0\0\0\3<x>"sv,
                                           "\x20\0\0\0\2ab"sv,
                                           "\x22\0\0\0\0\0\0\0\7"sv};
    const unsigned n = below(4);
    switch (below(depth < kDeepest ? 12 : 6)) {
        case 0:
        case 1:
            out.reference(static_cast<std::uint16_t>(below(5)));
            break;
        case 6:
            out.strictArray(n);
            for (unsigned i = 0; i < n; ++i)
                value(out, depth + 1);
            break;
        case 7:
            out.ecmaArray();
            entries(out, depth + 1);
            break;
        case 8:
            out.typedObject(n > 1 ? "Object" : "c");
            entries(out, depth + 1);
            break;
        case 9:
            out.object();
            entries(out, depth + 1);
            break;
        case 10:
        case 11:
            out.raw("\x11");
            amf3Value(out, depth + 1);
            break;
        default:
            out.raw(pick(kPlain));
            break;
    }
}

void ZmvGenerator::amf3Text(Amf& out)
{
    if (oneIn(3)) {
        out.raw(u29(below(3) * 2));
        return;
    }
    const std::string text = oneIn(20) ? std::string(8000, 'l') : pick(kNames);
    out.raw(u29(static_cast<std::uint32_t>(text.size() * 2 + 1)) + text);
}

void ZmvGenerator::amf3Entries(Amf& out, unsigned depth)
{
    for (unsigned n = below(4); n > 0; --n) {
        amf3Text(out);
        amf3Value(out, depth);
    }
    out.raw("\1");
}

void ZmvGenerator::amf3Value(Amf& out, unsigned depth)
{
    const std::uint32_t marker = below(depth < kDeepest ? 18 : 9);
    out.raw(std::string(1, static_cast<char>(marker)));
    const bool isReference = marker >= 7 && oneIn(3);
    if (isReference) {
        out.raw(u29(below(5) * 2));
        return;
    }
    // Values that are not nested, by marker.
    constexpr std::string_view kPlain[] = {"",
                                           "",
                                           "",
                                           "",
                                           "\x81\x48",
                                           "",
                                           "",
                                           "\7<x>",
                                           "\1\x42\0\0\0\0\0\0\0"sv,
                                           "",
                                           "",
                                           "\7<x>",
                                           "\7abc",
                                           "\3\0\0\0\0\7"sv,
                                           "\3\0\0\0\0\7"sv,
                                           "\3\1\x40\0\0\0\0\0\0\0"sv};
    switch (marker) {
        case 5:
            out.raw(bytesOf(m_duration));
            break;
        case 6:
            amf3Text(out);
            break;
        case 9: {
            const unsigned n = below(3);
            out.raw(u29(n * 2 + 1));
            amf3Entries(out, depth + 1);
            for (unsigned i = 0; i < n; ++i)
                amf3Value(out, depth + 1);
            break;
        }
        case 10:
            if (oneIn(3)) {
                out.raw(u29(below(3) * 4 + 1));
                amf3Value(out, depth + 1);
                out.raw("\1");
            } else {
                out.raw(oneIn(2) ? "\x0B" : "\x1B");
                amf3Text(out);
                amf3Entries(out, depth + 1);
            }
            break;
        case 16:
            out.raw(std::string("\3\0\1", 3));
            amf3Value(out, depth + 1);
            break;
        case 17:
            out.raw(std::string("\3\0", 2));
            amf3Value(out, depth + 1);
            amf3Value(out, depth + 1);
            break;
        default:
            out.raw(kPlain[marker]);
            break;
    }
}

void ZmvGenerator::doubling(Amf& out)
{
    // Each array, or object, holds the one before it twice.
    const bool areObjects = oneIn(2);
    const auto levels = static_cast<std::uint16_t>(1 + below(24));
    for (std::uint16_t i = 0; i < levels; ++i) {
        out.name("x");
        if (areObjects)
            out.object().name("a").reference(i).name("b").reference(i).end();
        else
            out.strictArray(2).reference(i).reference(i);
    }
}

}  // namespace krx::test
