// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/mp4/mp4.h"

// Private to the sources of MP4File.

namespace krx::mp4 {

/// What the walk does with a box of one type.
struct MP4File::BoxRule
{
    enum Place
    {
        kAnywhere,
        kInTrack,  ///< error kBadBoxHierarchy without a current track
    };

    unsigned type = 0;
    /// Starts after the box's header and may leave the position anywhere; null: the box is passed over.
    void (MP4File::*handler)(const BoxHeader& box) = nullptr;
    Place place = kAnywhere;
    int highestVersion = 0;  ///< for handlers that ask parseVersion
};

/// Keeps the type of the box that is being read on the stack of open boxes.
class MP4File::OpenBox
{
public:
    OpenBox(std::vector<unsigned>& stack, unsigned type) : m_stack(stack) { m_stack.push_back(type); }
    ~OpenBox() { m_stack.pop_back(); }
    OpenBox(const OpenBox&) = delete;
    OpenBox& operator=(const OpenBox&) = delete;

private:
    std::vector<unsigned>& m_stack;
};

}  // namespace krx::mp4
