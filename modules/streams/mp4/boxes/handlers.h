// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/mp4/boxheader.h"

#include <optional>

// The handlers of the boxes, for the table of boxes; BoxRule says where they start. Each reads one box and
// sees only the reader and the facts passed to it. They throw what the reader throws, and findings about the
// box.

namespace krx::mp4 {

class BoxReader;
class BoxWalk;
class TrackInfo;
struct Movie;

// movie.cpp: the file type, the movie box, the track boxes and the track records.

void readFileType(BoxReader& in, const BoxHeader& box, Movie& movie);
void readMovie(BoxWalk& walk, const BoxHeader& box);
void readMovieHeader(BoxReader& in, const BoxHeader& box, Movie& movie);
void readTrack(BoxWalk& walk, const BoxHeader& box);
TrackInfo* readTrackHeader(BoxReader& in, const BoxHeader& box, Movie& movie);
void readMediaHeader(BoxReader& in, const BoxHeader& box, TrackInfo& track);
void readFreeSpace(BoxReader& in, const BoxHeader& box, Movie& movie);
/// Marks the track as valid when it has all that playing needs; else throws Mp4TrackError.
void validateTrack(BoxReader& in, TrackInfo& track);

// tables.cpp: the sample tables and the edit list of a track.

void readTimeToSample(BoxReader& in, const BoxHeader& box, TrackInfo& track);
void readCompositionToSample(BoxReader& in, const BoxHeader& box, TrackInfo& track);
void readSampleToChunk(BoxReader& in, const BoxHeader& box, TrackInfo& track);
void readSampleSize(BoxReader& in, const BoxHeader& box, TrackInfo& track);
void readChunkOffset(BoxReader& in, const BoxHeader& box, TrackInfo& track);
void readSyncSample(BoxReader& in, const BoxHeader& box, TrackInfo& track);
void readSampleFlags(BoxReader& in, const BoxHeader& box, TrackInfo& track);
void readEditList(BoxReader& in, const BoxHeader& box, TrackInfo& track);

/// The bytes in a free box that follows what was read of its parent, its header excluded. A recording keeps
/// them for more entries.
std::optional<long long> readReservedRoom(BoxReader& in, const BoxHeader& parent);

// descriptions.cpp: what a track carries, and whether it can be streamed.

void readHandler(BoxWalk& walk, const BoxHeader& box);
void readSampleDescription(BoxWalk& walk, const BoxHeader& box);

// fragments.cpp: movie fragments.

void readMovieExtends(BoxReader& in, const BoxHeader& box, Movie& movie);
TrackInfo* readTrackExtends(BoxReader& in, const BoxHeader& box, Movie& movie);
void readMovieFragment(BoxReader& in, const BoxHeader& box, Movie& movie);
void readMovieFragmentHeader(BoxReader& in, const BoxHeader& box, Movie& movie);
void readTrackFragment(BoxWalk& walk, const BoxHeader& box);

// metadata.cpp: item lists, string tags, chapters, progressive download, XMP.

void readMetadata(BoxWalk& walk, const BoxHeader& box);
void readItemList(BoxReader& in, const BoxHeader& box, Movie& movie);
void readStringTag(BoxReader& in, const BoxHeader& box, Movie& movie);
void readChapterList(BoxReader& in, const BoxHeader& box, Movie& movie);
void readProgressiveDownload(BoxReader& in, const BoxHeader& box, Movie& movie);
void readXmp(BoxReader& in, const BoxHeader& box, Movie& movie);

// protection.cpp: the content protection of a track.

void readOriginalFormat(BoxReader& in, const BoxHeader& box, TrackInfo& track);
void readProtectionScheme(BoxReader& in, const BoxHeader& box, Movie& movie);
void readProtectionHeader(BoxReader& in, const BoxHeader& box, TrackInfo& track);
void readEncryptionParams(BoxReader& in, const BoxHeader& box, TrackInfo& track);
void readEncryptionInfo(BoxReader& in, const BoxHeader& box, TrackInfo& track);
void readAccessUnitFormat(BoxReader& in, const BoxHeader& box, TrackInfo& track);
void readSignature(BoxReader& in, const BoxHeader& box, TrackInfo& track);
void readZolProtection(BoxReader& in, const BoxHeader& box, TrackInfo& track);
void readWdxsProtection(BoxReader& in, const BoxHeader& box, TrackInfo& track);

}  // namespace krx::mp4
