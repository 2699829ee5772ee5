// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <string_view>

namespace archive {

/// What the names of the files in a folder tell of it. A recording has a file "index", a file "contexts" and
/// files of segments, whose names are 16 hexadecimal digits; two of the three make one, so that a recording
/// that lost files is found.
class RecordingSigns
{
public:
    /// Whether a file of that name is a sign of a recording.
    static bool isSign(std::string_view name) { return signOf(name) != 0; }
    /// Notes a file of the folder.
    void add(std::string_view name) { m_signs |= signOf(name); }
    bool isRecording() const { return (m_signs & (m_signs - 1)) != 0; }

private:
    /// A bit for each kind of sign; 0 for other names.
    static unsigned signOf(std::string_view name);

    unsigned m_signs = 0;
};

}  // namespace archive
