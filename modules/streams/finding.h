// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <string>

namespace krx::streams {

/// Where a finding was made. What is not known keeps its default.
struct Place
{
    long long offset = -1;  ///< bytes from the start of the file: of the box, the message or the faulty bytes
    /// The boxes around it, from the outermost to the innermost whose header is sound, as in
    /// "moov/trak[2]/mdia/minf/stbl/stsd" (UTF-8). Empty at the top of the file.
    ///
    /// A type that a parent may hold several times ('trak', 'moof', 'traf', 'trex') has its number among that
    /// type in the parent, from 1 on. An entry of 'stsd' has the number by which samples name it. Other types
    /// have none.
    std::string path;
    unsigned track = 0;      ///< ID of the track that was being read; 0 for none
    std::string file;        ///< of a recorded stream: the name of the file in its folder, in bytes
    long long sample = 0;    ///< number of the sample in its track, from 1 on; 0 for none
    long long message = -1;  ///< position of the message in the stream, from 0 on
    long long time = -1;     ///< of the sample or the message, ms
};

enum class FindingLevel
{
    kInformation,
    kWarning,  ///< the input can still pass
    kError,    ///< the input is invalid
};

/// One thing that a check has found: plain data, valid on its own.
struct Finding
{
    /// As reports show it, for example -18. 0 for a sentence that only explains the finding after it.
    int number = 0;
    FindingLevel level = FindingLevel::kError;
    std::string text;  ///< the sentence without the number; names in it are bytes, as in the file system
    Place place;
    int systemError = 0;  ///< errno of the system call that failed; 0 for none
};

/// Receives findings in the order in which they are made, on the thread that makes them.
class FindingSink
{
public:
    /// Asked before a warning is made, since there may be millions: false when the sink has counted it and
    /// wants no more of it. Errors are not asked for.
    virtual bool admitsWarning() = 0;
    virtual void add(const Finding& finding) = 0;

protected:
    ~FindingSink() = default;
};

}  // namespace krx::streams
