// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/finding.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// What a check learns of one input, as plain data. A report is valid on its own, and may be copied, moved
/// and kept. Times are milliseconds, sizes and offsets bytes; what is not known is absent. Texts are UTF-8
/// except paths and the names in findings, which are bytes as in the file system.
namespace vidlint {

using krx::streams::Finding;
using krx::streams::FindingLevel;
using krx::streams::Place;

/// What the path names: a folder is a recording, a name that ends in ".zmv" (in any case) a ZMV file, and
/// every other one an MP4 file.
enum class InputKind
{
    kZmv,
    kMp4,
    kRecording,
};

enum class Verdict
{
    kInvalid,
    kValid,
};

/// What to do about an input. The numbers do not change between versions.
enum class Cause
{
    kNone = 0,         ///< nothing
    kCutShort = 1,     ///< fetch the rest: the input ends, or has a hole, before its last sample or message
    kOtherFormat = 2,  ///< rename or convert: the first bytes are those of another format
    kEmpty = 3,        ///< fetch it anew: no byte is in it
    kDamaged = 4,      ///< repair it or fetch it anew: it contradicts itself
    kUnsupported = 5,  ///< convert: sound as far as it was read, but the server does not play it
    kUnreadable = 6,   ///< look at the disk and the rights: a system call failed
    kResources = 7,    ///< check it again, with more memory: memory ran out
};

enum class TrackKind
{
    kOther,
    kVideo,
    kAudio,
    kText,
    kData,
};

/// One track of an MP4 file, or the messages of one kind of a ZMV file or a recording. An MP4 file that is
/// invalid has no track that plays; of a ZMV file or a recording, messages play as far as they are whole.
struct Track
{
    unsigned id = 0;  ///< 0 where tracks have none
    TrackKind kind = TrackKind::kOther;
    std::string codec;     ///< four-character code of the first description; '.' stands for zero bytes
    std::string rfc6381;   ///< as in "avc1.64001F" and "mp4a.40.2"; empty for other codecs
    std::string language;  ///< three letters, ISO 639-2; empty when there is none
    int width = 0;         ///< of the picture, in pixels; 0 when not known
    int height = 0;
    double sampleRate = 0;  ///< Hz; 0 when not known
    unsigned channels = 0;
    std::optional<long long> samples;    ///< as the tables give it
    std::optional<long long> firstTime;  ///< start of the first sample
    std::optional<long long> lastTime;   ///< end of the last sample, as the tables give it
    bool plays = false;
    /// End of the last sample before the first one, in time order, that lies beyond the end of the file or in
    /// a hole of it. Absent when the track does not play, and for the data messages of a ZMV file or a
    /// recording, which limit nothing.
    std::optional<long long> playsUntil;
    std::optional<Finding> droppedBy;  ///< why it does not play, where one finding says so
};

/// One change that a repair makes: bytes that take the place of a stretch of the input.
struct Fix
{
    long long position = 0;       ///< in the input
    long long replaceLength = 0;  ///< bytes of the input that are left out; 0 for an insertion
    std::shared_ptr<const unsigned char[]> bytes;
    unsigned size = 0;        ///< number of bytes
    std::string description;  ///< one line, as in "replace onMetaData"
};

/// Which file a report is about, so that a repair can tell when it has changed.
struct FileIdentity
{
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::int64_t modifiedSeconds = 0;
    std::int64_t modifiedNanoseconds = 0;
};

struct InputReport
{
    std::string path;
    InputKind kind = InputKind::kMp4;
    /// Bytes of the file; of a recording, of all its files. Absent when it could not be found out.
    std::optional<long long> size;

    /// The check was told to end before it came to a verdict; all that follows may be incomplete.
    bool cancelled = false;
    /// That of the program vidlint, but for the copies that only the program writes.
    Verdict verdict = Verdict::kInvalid;
    Cause cause = Cause::kNone;
    std::string otherFormat;  ///< its name when the cause is kOtherFormat, as in "Matroska"
    bool unreadable = false;  ///< a system call failed to open or read the input; beside any verdict

    std::vector<Finding> findings;           ///< in order: Settings::maxFindings at most, and the errors
    unsigned long long findingsOmitted = 0;  ///< warnings that were counted only

    std::vector<Track> tracks;                   ///< in file order
    std::optional<long long> announcedDuration;  ///< as the header or the metadata says
    std::optional<long long> duration;           ///< as the tables or the messages give it
    std::optional<long long> playsUntil;         ///< the smallest of the tracks that play
    std::optional<long long> messages;           ///< that a player is sent

    /// What a repair would change, in the order of the input; a copy is wanted when there is one.
    std::vector<Fix> fixes;
    FileIdentity identity;
};

/// The names that reports use: "zmv", "mp4", "recording".
const char* nameOf(InputKind kind);
/// "valid", "invalid".
const char* nameOf(Verdict verdict);
/// "none", "cut-short", "other-format", "empty", "damaged", "unsupported", "unreadable", "resources".
const char* nameOf(Cause cause);
/// "other", "video", "audio", "text", "data".
const char* nameOf(TrackKind kind);
/// "information", "warning", "error".
const char* nameOf(FindingLevel level);

}  // namespace vidlint
