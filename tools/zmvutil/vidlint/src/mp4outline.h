// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "util/SRFileUtil.h"

class IKrxFileIo;

namespace krx::util {
class FileHoles;
}

/// Whether the outermost boxes of an open MP4 file say that something of it is missing: a box goes on beyond
/// the end of the file or begins in a hole, or media is there but the movie box is not. Looks at the headers
/// of the first few thousand boxes only. False where it cannot tell.
bool isOutlineCutShort(IKrxFileIo& io, int fd, krx::util::FilePos size, krx::util::FileHoles& holes);
