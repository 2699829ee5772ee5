// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/mp4/boxreader.h"
#include "modules/streams/mp4/movie.h"

namespace krx::mp4 {

/// Reads the headers and runs of movie fragments: each once during the parse, to check it, and again when a
/// cursor stands in it. Needs the file and the facts, not the parser.
class FragmentLoader
{
public:
    /// Neither is owned.
    FragmentLoader(BoxReader& reader, Movie& movie) : m_reader(reader), m_movie(movie) {}

    /// During the parse, with the fragment's box open: reads the boxes from the position to end into the
    /// fragment. Returns its track. Throws kBadBoxHierarchy when a header with a track does not come first,
    /// kTableReadError for runs that the file cannot hold, and what the reader throws.
    TrackInfo& read(TrackFragment& fragment, krx::util::FilePos end);
    /// After the parse, with the file open: the same from payload to end, without the warnings, which the
    /// parse gave.
    void reload(TrackFragment& fragment, krx::util::FilePos payload, krx::util::FilePos end);
    /// Whether the fragment, just parsed, stays loaded until it is first played, so that most files are read
    /// once. Such fragments have a limit of their own and are not charged to the budget.
    bool keep(TrackFragment& fragment);

private:
    TrackInfo& readHeader(TrackFragment& fragment);

    BoxReader& m_reader;
    Movie& m_movie;
    unsigned long long m_kept = 0;  ///< bytes
};

}  // namespace krx::mp4
