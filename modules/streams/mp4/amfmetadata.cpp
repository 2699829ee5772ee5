// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/amfmessage.h"
#include "modules/streams/mp4/movie.h"

#include <deque>
#include <string>
#include <string_view>

namespace krx::mp4 {
namespace {

bool isImage(const TagEntry& tag)
{
    return tag.dataType == TagEntry::kJPEG || tag.dataType == TagEntry::kPNG;
}

std::string fourCCText(unsigned code)
{
    char text[9];
    AMFMessage::FourCCToUTF8(text, code);
    return text;
}

std::string tagKey(const TagEntry& tag)
{
    std::string key = fourCCText(tag.itemType);
    if (tag.language != 0) {
        char language[4];
        AMFMessage::ToLanguageString(tag.language, language);
        key.append("-").append(language);
    }
    return key;
}

unsigned countOf(std::size_t n)
{
    return static_cast<unsigned>(n);
}

}  // namespace

/// Writes the body of "onMetaData", group after group. Facts that are missing leave their keys out.
class AMFMessage::MetaData
{
public:
    MetaData(AMFMessage& out, const Movie& movie, bool amf3) : m_out(out), m_movie(movie), m_amf3(amf3) {}

    void write(unsigned duration)
    {
        m_out.beginMessage("onMetaData", m_amf3);
        m_out.beginECMAArray(0);
        m_out.AddNamedAMF0Number("duration", duration / 1000.0);
        m_out.AddNamedAMF0Number("moovPosition", static_cast<double>(m_movie.payload));
        writeCodecs();
        writeRates();
        writeTags();
        writeChapters();
        writeProgressiveInfo();
        writeTrackInfo();
        m_out.endObject();
    }

private:
    /// The first sample description of a valid track; null when there is none.
    static const SampleEntry* firstEntry(const TrackInfo& track)
    {
        return track.isValid() && !track.sampleDescriptions.empty() ? &track.sampleDescriptions[0] : nullptr;
    }

    void writeCodecs()
    {
        for (const auto& track : m_movie.tracks) {
            const SampleEntry* entry = firstEntry(*track);
            if (!entry)
                continue;
            if (entry->width != 0 && entry->height != 0) {
                m_out.AddNamedAMF0Number("width", entry->width);
                m_out.AddNamedAMF0Number("height", entry->height);
                m_out.addNamedText("videocodecid", fourCCText(entry->type));
            } else if (entry->sampleRate > 0)
                m_out.addNamedText("audiocodecid", fourCCText(entry->type));
        }
        if (m_movie.avcSeen) {
            m_out.AddNamedAMF0Number("avcprofile", m_movie.avcProfile);
            m_out.AddNamedAMF0Number("avclevel", m_movie.avcLevel);
        }
        if (m_movie.aacSeen)
            m_out.AddNamedAMF0Number("aacaot", m_movie.aacObjectType);
    }

    void writeRates()
    {
        for (const auto& track : m_movie.tracks) {
            const SampleEntry* entry = firstEntry(*track);
            if (!entry)
                continue;
            if (track->isVideo)
                writeFrameRate(*track);
            else if (track->isAudio) {
                m_out.AddNamedAMF0Number("audiosamplerate", entry->sampleRate);
                m_out.AddNamedAMF0Number("audiochannels", entry->channelCount);
            }
        }
    }

    void writeFrameRate(const TrackInfo& track)
    {
        auto samples = static_cast<double>(track.sampleTotal);
        auto length = static_cast<double>(track.getContentLength());
        if (length <= 0) {
            // A fragmented file states no length; it follows from the times of its samples.
            samples = track.samplesPassed;
            length = static_cast<double>(track.timePassed);
        }
        if (length > 0)
            m_out.AddNamedAMF0Number("videoframerate", samples * track.timescale / length);
    }

    void writeTags()
    {
        const std::deque<TagEntry>& tags = m_movie.tags;
        if (tags.empty())
            return;
        m_out.addName("tags");
        m_out.beginECMAArray(countOf(tags.size()));
        for (std::size_t i = 0; i < tags.size();) {
            if (isImage(tags[i]) && m_amf3)
                i += writeImages(i);
            else
                writeTag(tags[i++]);
        }
        m_out.endObject();
    }

    void writeTag(const TagEntry& tag)
    {
        switch (tag.dataType) {
            case TagEntry::kImplicit:
            case TagEntry::kInteger:
                writeIntegers(tag);
                break;
            case TagEntry::kText:
                m_out.addNamedText(tagKey(tag), tag.content);
                break;
            default:
                m_out.AddNamedAMF0Number(tagKey(tag).c_str(), 0);
                break;
        }
    }

    void writeIntegers(const TagEntry& tag)
    {
        const unsigned count = tag.integerCount();
        if (count == 1) {
            m_out.AddNamedAMF0Number(tagKey(tag).c_str(), tag.integer(0));
            return;
        }
        m_out.beginStrictArray(tagKey(tag), count);
        for (unsigned i = 0; i < count; ++i) {
            m_out.putNumber(tag.integer(i));
        }
    }

    /// Writes the images of one item, from tag first on, as one value. Returns how many they are.
    std::size_t writeImages(std::size_t first)
    {
        const std::deque<TagEntry>& tags = m_movie.tags;
        std::size_t end = first + 1;
        while (end < tags.size() && tags[end].itemType == tags[first].itemType &&
               tags[end].dataType == tags[first].dataType)
            ++end;
        m_out.beginStrictArray(tagKey(tags[first]), countOf(end - first));
        for (std::size_t i = first; i < end; ++i)
            m_out.addByteArray(reinterpret_cast<const unsigned char*>(tags[i].content.data()),
                               static_cast<unsigned>(tags[i].content.size()));
        return end - first;
    }

    void writeChapters()
    {
        const auto& chapters = m_movie.chapters;
        if (chapters.empty())
            return;
        const double timescale = m_movie.timescale;
        m_out.beginStrictArray("chapters", countOf(chapters.size()));
        for (const ChapterEntry& chapter : chapters) {
            m_out.beginObject();
            m_out.AddNamedAMF0Number("time",
                                     timescale > 0 ? static_cast<double>(chapter.time) / timescale : 0);
            m_out.addNamedText("title", chapter.title);
            m_out.endObject();
        }
    }

    void writeProgressiveInfo()
    {
        const auto& entries = m_movie.progressive;
        if (entries.empty())
            return;
        m_out.beginStrictArray("progressivedownloadinfo", countOf(entries.size()));
        for (const ProgressiveEntry& entry : entries) {
            m_out.beginObject();
            m_out.AddNamedAMF0Number("rate", entry.rate);
            m_out.AddNamedAMF0Number("initialdelay", entry.initialDelay);
            m_out.endObject();
        }
    }

    void writeTrackInfo()
    {
        static const TextStyle kNoStyle;
        m_out.beginStrictArray("trackinfo", countOf(m_movie.tracks.size()));
        for (const auto& track : m_movie.tracks) {
            m_out.beginObject();
            m_out.AddNamedAMF0Number("length", static_cast<double>(track->duration));
            m_out.AddNamedAMF0Number("timescale", track->timescale);
            if (track->language != 0) {
                char language[4];
                ToLanguageString(track->language, language);
                m_out.AddNamedAMF0String("language", language);
            }
            m_out.beginStrictArray("sampledescription", countOf(track->sampleDescriptions.size()));
            for (std::size_t i = 0; i < track->sampleDescriptions.size(); ++i) {
                const SampleEntry& entry = track->sampleDescriptions[i];
                m_out.beginObject();
                m_out.addNamedText("sampletype", fourCCText(entry.type));
                if (track->isValid() && track->isText)
                    writeTextStyle(entry.style ? *entry.style : kNoStyle);
                m_out.endObject();
            }
            m_out.endObject();
        }
    }

    void writeTextStyle(const TextStyle& style)
    {
        m_out.AddNamedAMF0Number("displayflags", style.displayFlags);
        m_out.AddNamedAMF0Number("horizontaljustification", style.horizontalJustification);
        m_out.AddNamedAMF0Number("verticaljustification", style.verticalJustification);
        m_out.AddNamedAMF0Number("backgroundcolor", style.backgroundColor);
        m_out.beginObject("defaulttextbox");
        m_out.AddNamedAMF0Number("top", style.boxTop);
        m_out.AddNamedAMF0Number("left", style.boxLeft);
        m_out.AddNamedAMF0Number("bottom", style.boxBottom);
        m_out.AddNamedAMF0Number("right", style.boxRight);
        m_out.endObject();
        m_out.beginObject("defaultstyle");
        m_out.AddNamedAMF0Number("startchar", style.startChar);
        m_out.AddNamedAMF0Number("endchar", style.endChar);
        m_out.AddNamedAMF0Number("fontid", style.fontId);
        m_out.AddNamedAMF0Number("facestyleflags", style.faceStyleFlags);
        m_out.AddNamedAMF0Number("fontsize", style.fontSize);
        m_out.AddNamedAMF0Number("textcolor", style.textColor);
        m_out.endObject();
        if (style.fonts.size() == 0)
            return;
        m_out.beginStrictArray("fonttable", style.fonts.size());
        style.fonts.forEach([&](unsigned id, std::string_view name) {
            m_out.beginObject();
            m_out.AddNamedAMF0Number("fontid", id);
            m_out.addNamedText("fontname", name);
            m_out.endObject();
        });
    }

    AMFMessage& m_out;
    const Movie& m_movie;
    const bool m_amf3;
};

void AMFMessage::initMetaData(const Movie& movie, unsigned duration, bool amf3)
{
    makeWhole([&] { MetaData(*this, movie, amf3).write(duration); });
}

}  // namespace krx::mp4
