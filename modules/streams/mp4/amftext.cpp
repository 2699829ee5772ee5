// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/amfmessage.h"
#include "modules/streams/mp4/boxheader.h"
#include "modules/streams/mp4/trackinfo.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <span>
#include <string>

namespace krx::mp4 {
namespace {

/// A number of n bytes that is written under name.
struct Field
{
    const char* name;
    int n;
};

constexpr Field kStyleFields[] = {{"startchar", 2},      {"endchar", 2},  {"fontid", 2},
                                  {"facestyleflags", 1}, {"fontsize", 1}, {"textcolor", 4}};
constexpr Field kCharRange[] = {{"startchar", 2}, {"endchar", 2}};
constexpr Field kHighlightColor[] = {{"highlightcolor", 4}};
constexpr Field kKaraokeFields[] = {{"endtime", 4}, {"startchar", 2}, {"endchar", 2}};
constexpr Field kScrollDelay[] = {{"scrolldelay", 4}};
constexpr Field kTextBox[] = {{"top", 2}, {"left", 2}, {"bottom", 2}, {"right", 2}};
constexpr Field kWrapFlag[] = {{"wrapflag", 1}};
constexpr Field kShadowOffset[] = {{"dropshadowoffsetx", 2}, {"dropshadowoffsety", 2}};
constexpr Field kShadowAlpha[] = {{"dropshadowalpha", 2}};

/// What a modifier box becomes: its fields under their own names, or an object of them.
struct Modifier
{
    unsigned type;
    const char* objectName;  ///< null: no object around the fields
    std::span<const Field> fields;
};

constexpr Modifier kModifiers[] = {
    {fourCC("hlit"), "highlight", kCharRange}, {fourCC("hclr"), nullptr, kHighlightColor},
    {fourCC("dlay"), nullptr, kScrollDelay},   {fourCC("tbox"), "textbox", kTextBox},
    {fourCC("blnk"), "blink", kCharRange},     {fourCC("twrp"), nullptr, kWrapFlag},
    {fourCC("drpo"), nullptr, kShadowOffset},  {fourCC("drpt"), nullptr, kShadowAlpha},
};

}  // namespace

/// Writes the body of "onTextData". The sample is a 16-bit text length, the text, and modifier boxes.
class AMFMessage::TimedText
{
public:
    TimedText(AMFMessage& out, const unsigned char* sample, unsigned length)
        : m_out(out), m_at(sample), m_end(sample + length)
    {
    }

    void write(unsigned trackId, bool amf3)
    {
        m_out.beginMessage("onTextData", amf3);
        m_out.beginECMAArray(0);
        m_out.AddNamedAMF0Number("trackid", trackId);
        m_out.addNamedText("text", readText(readNumber(2)));
        while (m_at < m_end && writeModifier())
            ;
        m_out.endObject();
    }

private:
    unsigned readNumber(int n) { return SaveReadUnsigned(&m_at, n, m_end); }

    std::string_view readText(unsigned length)
    {
        const auto n = std::min<std::size_t>(length, static_cast<std::size_t>(m_end - m_at));
        const auto* text = reinterpret_cast<const char*>(m_at);
        m_at += n;
        return {text, n};
    }

    /// False when the box has no sound size: the list ends there.
    bool writeModifier()
    {
        const unsigned char* start = m_at;
        unsigned long long size = readNumber(4);
        const unsigned type = readNumber(4);
        if (size == 1) {
            size = static_cast<unsigned long long>(readNumber(4)) << 32;
            size |= readNumber(4);
        }
        if (size < static_cast<std::size_t>(m_at - start))
            return false;
        const unsigned char* sampleEnd = m_end;
        const bool fits = size < static_cast<std::size_t>(sampleEnd - start);
        m_end = fits ? start + size : sampleEnd;
        writeModifierBody(type);
        m_at = m_end;
        m_end = sampleEnd;
        return true;
    }

    void writeModifierBody(unsigned type)
    {
        switch (type) {
            case fourCC("styl"):
                writeArray("style", kStyleFields);
                return;
            case fourCC("krok"):
                m_out.beginObject("karaoke");
                m_out.AddNamedAMF0Number("starttime", readNumber(4));
                writeArray("highlight", kKaraokeFields);
                m_out.endObject();
                return;
            case fourCC("href"):
                m_out.beginObject("hypertext");
                writeFields(kCharRange);
                m_out.addNamedText("url", readText(readNumber(1)));
                m_out.addNamedText("alt", readText(readNumber(1)));
                m_out.endObject();
                return;
            default:
                break;
        }
        const auto* modifier = std::find_if(std::begin(kModifiers), std::end(kModifiers),
                                            [&](const Modifier& m) { return m.type == type; });
        if (modifier == std::end(kModifiers))
            return;
        if (modifier->objectName)
            m_out.beginObject(modifier->objectName);
        writeFields(modifier->fields);
        if (modifier->objectName)
            m_out.endObject();
    }

    void writeFields(std::span<const Field> fields)
    {
        for (const Field& field : fields)
            m_out.AddNamedAMF0Number(field.name, readNumber(field.n));
    }

    /// A 16-bit count of entries and the entries, of which only as many count as the box holds.
    template <std::size_t N>
    void writeArray(const char* name, const Field (&fields)[N])
    {
        int entrySize = 0;
        for (const Field& field : fields)
            entrySize += field.n;
        const unsigned declared = readNumber(2);
        const auto present = static_cast<unsigned>((m_end - m_at) / entrySize);
        const unsigned entries = std::min(declared, present);
        m_out.beginStrictArray(name, entries);
        for (unsigned i = 0; i < entries; ++i) {
            m_out.beginObject();
            writeFields(fields);
            m_out.endObject();
        }
    }

    AMFMessage& m_out;
    const unsigned char* m_at;
    const unsigned char* m_end;
};

void AMFMessage::initFromText(const TrackInfo& track, bool amf3, const unsigned char* sample, unsigned length)
{
    TimedText(*this, sample, length).write(track.trackId, amf3);
}

}  // namespace krx::mp4
