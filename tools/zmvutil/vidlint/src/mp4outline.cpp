// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/vidlint/src/mp4outline.h"

#include "interfaces/IKrxFileIo.h"
#include "modules/streams/mp4/boxheader.h"
#include "util/bigendian.h"
#include "util/fileholes.h"

#include <algorithm>
#include <array>

using krx::mp4::fourCC;
using krx::util::FilePos;

namespace {

/// Files have a few boxes, or one for some seconds of media.
constexpr int kMostBoxes = 4096;

/// Types are mostly letters; zeros and media are not.
bool isType(const unsigned char* bytes)
{
    constexpr unsigned char kCopyrightSign = 0xA9;
    return std::all_of(bytes, bytes + 4,
                       [](unsigned char c) { return (c >= ' ' && c <= '~') || c == kCopyrightSign; });
}

}  // namespace

bool isOutlineCutShort(IKrxFileIo& io, int fd, FilePos size, krx::util::FileHoles& holes)
{
    bool movieSeen = false;
    bool mediaSeen = false;
    FilePos next = 0;
    for (int i = 0; i < kMostBoxes && size - next >= krx::mp4::kBoxHeaderSize; ++i) {
        std::array<unsigned char, krx::mp4::kLargeBoxHeaderSize> header{};
        const FilePos wanted = std::min<FilePos>(header.size(), size - next);
        if (!holes.isData(next, wanted))
            return true;
        if (io.read(fd, next, header.data(), static_cast<unsigned>(wanted)) != wanted || !isType(&header[4]))
            return false;
        unsigned long long length = krx::util::loadBig32(header.data());
        const unsigned type = krx::util::loadBig32(&header[4]);
        if (length == 1 && wanted < krx::mp4::kLargeBoxHeaderSize)
            return true;
        if (length == 1)
            length = krx::util::loadBigEndian<unsigned long long>(&header[8]);
        movieSeen |= type == fourCC("moov");
        mediaSeen |= type == fourCC("mdat");
        if (length == 0)
            next = size;  // the box ends with the file
        else if (length < krx::mp4::kBoxHeaderSize)
            return false;
        else if (length > static_cast<unsigned long long>(size - next))
            return true;
        else
            next += static_cast<FilePos>(length);
    }
    return mediaSeen && !movieSeen;
}
