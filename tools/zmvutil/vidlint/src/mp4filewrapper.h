// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/mp4/mp4fileio.h"
#include "tools/zmvutil/vidlint/src/videofile.h"

#include <memory>
#include <optional>

namespace krx::mp4 {
class Mp4Data;
struct TrackExtent;
}  // namespace krx::mp4

/// An MP4 file as an input of a check. There is nothing to repair in it.
class MP4FileWrapper : public VideoFile
{
public:
    MP4FileWrapper(const SRString& path, krx::streams::VideoValidationParameters parameters,
                   const CheckEnvironment& environment);
    ~MP4FileWrapper() override;

    void parse() override;
    void describe(vidlint::InputReport& report) override;

private:
    void describeTracks(vidlint::InputReport& report) const;
    void addExtent(vidlint::InputReport& report, const krx::mp4::TrackExtent& extent) const;

    std::unique_ptr<krx::mp4::Mp4Data> m_data;
    std::optional<krx::mp4::AutoMp4Open> m_open;  ///< from parse to the end, for describe
    bool m_lacksMessages = false;                 ///< the boxes are sound, and no message comes of them
    bool m_isSound = false;                       ///< parse came to its end
};
