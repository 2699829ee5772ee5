// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <string>

namespace krx::mp4 {

struct SampleEntry;

/// The name of the codec as RFC 6381 has it: "avc1.64001F" with the profile, the constraint flags and the
/// level, "mp4a.40.2" with the audio object type as it is written in front of the configuration. Entries of
/// type '.mp3' are "mp4a.40.34". Empty for other codecs, encrypted ones included, and when the configuration
/// ends before these fields.
std::string rfc6381Of(const SampleEntry& entry);

/// The language code of a media header, three letters of 5 bits: "eng", "und". Empty when it is none.
std::string languageOf(unsigned short packed);

}  // namespace krx::mp4
