// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/amfmessage.h"

#include "modules/streams/mp4/boxheader.h"
#include "modules/streams/mp4/movie.h"
#include "util/SRException.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>
#include <memory>

namespace krx::mp4 {
namespace {

/// Calls function with every unit of big-endian UTF-16 text up to its first zero unit.
template <typename Function>
void forEachUnit(std::string_view utf16, Function function)
{
    for (std::size_t i = 0; i + 1 < utf16.size(); i += 2) {
        const unsigned unit = static_cast<unsigned>(static_cast<unsigned char>(utf16[i])) << 8 |
                              static_cast<unsigned char>(utf16[i + 1]);
        if (unit == 0)
            return;
        function(unit);
    }
}

constexpr unsigned utf8Length(unsigned unit)
{
    return unit < 0x80 ? 1 : unit < 0x800 ? 2 : 3;
}

std::string_view untilZero(std::string_view text)
{
    return text.substr(0, text.find('\0'));
}

}  // namespace

AMFMessage::AMFMessage(MemoryBudget* budget) : SRMemory(kInitialCapacity), m_budget(budget) {}

/// Calls write twice: to learn how long the body is, and to write it.
void AMFMessage::makeWhole(const std::function<void()>& write)
{
    m_isCounting = true;
    write();
    m_isCounting = false;
    if (!m_failed && m_budget)
        m_budget->charge(m_length);
    if (m_failed || (m_length > capacity() && !resize(m_length)))
        throw SROutOfMemory();
    write();
}

/// Counts n bytes. Returns room for them, or null where they are only counted, or have no room.
unsigned char* AMFMessage::make(unsigned n)
{
    if (m_failed)
        return nullptr;
    constexpr unsigned long long kMax = std::numeric_limits<unsigned>::max();
    const unsigned long long needed = static_cast<unsigned long long>(m_length) + n;
    if (needed > kMax) {
        m_failed = true;
        return nullptr;
    }
    if (!m_isCounting && needed > capacity()) {
        unsigned long long larger = capacity();
        while (larger < needed)
            larger *= 2;
        if (!resize(static_cast<unsigned>(std::min(larger, kMax)))) {
            m_failed = true;
            return nullptr;
        }
    }
    unsigned char* const out = m_isCounting ? nullptr : data() + m_length;
    m_length = static_cast<unsigned>(needed);
    return out;
}

void AMFMessage::AddAMF0String(std::string_view text, bool withMarker)
{
    const bool isUTF16 = text.starts_with("\xFE\xFF");
    std::size_t size = 0;
    if (isUTF16) {
        text.remove_prefix(2);
        forEachUnit(text, [&](unsigned unit) { size += utf8Length(unit); });
    } else {
        text = text.starts_with("\xFF\xFF") ? std::string_view() : untilZero(text);
        size = text.size();
    }

    if (size > std::numeric_limits<unsigned>::max())
        m_failed = true;
    const auto length = static_cast<unsigned>(size);
    putTextStart(length, withMarker);
    if (isUTF16)
        putUTF8(text);
    else
        putBytes(text.data(), length);
}

void AMFMessage::putUTF8(std::string_view utf16)
{
    forEachUnit(utf16, [&](unsigned unit) {
        char bytes[3];
        putBytes(bytes, U16CharToUTF8(unit, bytes, std::end(bytes)));
    });
}

void AMFMessage::AddNamedAMF0Number(const char* name, double number)
{
    addName(name);
    putNumber(number);
}

void AMFMessage::AddNamedAMF0String(const char* name, const char* value)
{
    if (name && value)
        addNamedText(name, value);
}

void AMFMessage::addNamedText(std::string_view name, std::string_view value)
{
    addName(name);
    AddAMF0String(value, true);
}

void AMFMessage::beginObject(std::string_view name)
{
    addName(name);
    beginObject();
}

void AMFMessage::beginECMAArray(unsigned count)
{
    putArrayStart(kAMF0ECMAArray, count);
}

void AMFMessage::beginStrictArray(std::string_view name, unsigned count)
{
    addName(name);
    putArrayStart(kAMF0StrictArray, count);
}

void AMFMessage::beginMessage(std::string_view name, bool amf3)
{
    m_length = 0;
    m_failed = false;
    if (amf3)
        WriteAMF0Byte(0);
    AddAMF0String(name, true);
}

void AMFMessage::endObject()
{
    putObjectEnd();
}

void AMFMessage::addByteArray(const unsigned char* bytes, unsigned n)
{
    putByte(kAMF0SwitchToAMF3);
    putByte(kAMF3ByteArray);
    putUint29(n * 2 + kAMF3Inline);
    putBytes(bytes, n);
}

void AMFMessage::initFromImage(unsigned trackId, bool amf3, const unsigned char* data, unsigned length)
{
    beginMessage("onImageData", amf3);
    beginECMAArray(0);
    AddNamedAMF0Number("trackid", trackId);
    if (amf3) {
        addName("data");
        addByteArray(data, length);
    }
    endObject();
}

void AMFMessage::initXMP(const SRMemory& xmp)
{
    const unsigned length = std::min(xmp.getUsed(), xmp.capacity());
    makeWhole([&] {
        beginMessage("onXMPData", false);
        beginECMAArray(0);
        addNamedText("data", {reinterpret_cast<const char*>(xmp.data()), length});
        endObject();
    });
}

bool AMFMessage::initDRMData(const Movie& movie)
{
    m_length = 0;
    const auto isProtected = [](const std::unique_ptr<TrackInfo>& track) {
        return !track->sampleDescriptions.empty() && (track->sampleDescriptions[0].type == fourCC("encv") ||
                                                      track->sampleDescriptions[0].type == fourCC("enca"));
    };
    const auto found = std::find_if(movie.tracks.begin(), movie.tracks.end(), isProtected);
    if (found == movie.tracks.end())
        return false;
    makeWhole([&] { writeDRMData((*found)->drm); });
    return true;
}

void AMFMessage::writeDRMData(const DRMTrackInfo& drm)
{
    beginMessage("|AdditionalHeader", false);
    beginObject();
    beginObject("Encryption");
    AddNamedAMF0Number("Version", drm.headerVersion);
    AddNamedAMF0String("Method", "Standard");
    AddNamedAMF0Number("Flags", drm.headerFlags);
    beginObject("Params");
    AddNamedAMF0Number("Version", drm.paramsVersion);
    addNamedText("EncryptionAlgorithm", drm.encryptionAlgorithm.view());
    beginObject("EncryptionParams");
    AddNamedAMF0Number("keyLengh", drm.keyLength);  // players know the key by this spelling
    endObject();
    beginObject("KeyInfo");
    switch (drm.kind) {
        case 1:
            AddNamedAMF0String("subType", "ZOL");
            beginObject("ZOL_LICENSE");
            addNamedText("license", drm.zolLicense.view());
            addNamedText("policy", drm.zolPolicy.view());
            addNamedText("edcData", drm.zolEdcData.view());
            addNamedText("domain", drm.zolDomain.view());
            endObject();
            break;
        case 2:
            AddNamedAMF0String("subType", "Wardenv2");
            beginObject("QPRS_METADATA");
            addNamedText("Metadata", drm.wdxsMetadata.view());
            addNamedText("License", drm.wdxsLicense.view());
            endObject();
            break;
        default:
            AddNamedAMF0String("subType", "UNKNOWN");
            break;
    }
    endObject();  // KeyInfo
    endObject();  // Params
    if (!drm.signatureFormat.empty()) {
        addNamedText("SigFormat", drm.signatureFormat.view());
        addNamedText("Signature", drm.signature.view());
    }
    endObject();  // Encryption
    endObject();
}

unsigned AMFMessage::U16CharToUTF8(unsigned unit, char* out, const char* end)
{
    const unsigned n = utf8Length(unit);
    if (unit > 0xFFFF || end - out < static_cast<std::ptrdiff_t>(n))
        return 0;
    if (n == 1)
        out[0] = static_cast<char>(unit);
    else {
        for (unsigned i = n - 1; i > 0; --i, unit >>= 6)
            out[i] = static_cast<char>(0x80 | (unit & 0x3F));
        out[0] = static_cast<char>((n == 2 ? 0xC0 : 0xE0) | unit);
    }
    return n;
}

void AMFMessage::FourCCToUTF8(char* out, unsigned fourCC)
{
    const char* end = out + 8;
    for (int shift = 24; shift >= 0; shift -= 8)
        out += U16CharToUTF8(fourCC >> shift & 0xFF, out, end);
    *out = 0;
}

void AMFMessage::ToLanguageString(unsigned code, char* out)
{
    for (int shift = 10; shift >= 0; shift -= 5) {
        const unsigned letter = code >> shift & 31;
        *out++ = static_cast<char>(letter == 0 ? ' ' : letter + 0x60);
    }
    *out = 0;
}

unsigned AMFMessage::SaveReadUnsigned(const unsigned char** p, int n, const unsigned char* end)
{
    unsigned value = 0;
    for (; n > 0 && *p < end; --n)
        value = value << 8 | *(*p)++;
    return value;
}

}  // namespace krx::mp4
