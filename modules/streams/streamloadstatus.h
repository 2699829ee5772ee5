// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

namespace krx::streams {

/// What IQVStreamAdaptor::open returns, for streams of every kind. The numbers do not change between
/// versions. The context, if there is one, gets the reason: a line of the number and the text of the finding,
/// a tab and the path, at level LOG_ERROR.
enum StreamLoadStatus : int
{
    kLoadOk = 0,
    /// Of a recorded stream: it cannot be loaded, for whatever reason, or the adaptor has no context. Of an
    /// MP4 file: even the report of what is wrong with it failed.
    kLoadFailed = 1,
    kLoadCannotOpen = 2,   ///< only of an MP4 file: the file cannot be opened
    kLoadNotPlayable = 5,  ///< only of an MP4 file: it is open, but malformed or without a track that plays
};

}  // namespace krx::streams
