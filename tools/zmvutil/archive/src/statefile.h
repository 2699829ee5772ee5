// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "tools/zmvutil/archive/src/database.h"

#include <memory>
#include <string>

namespace archive {

/// Opens a state, from media that cannot be written too. Throws StateError unless it is a state of this
/// version.
std::unique_ptr<Database> openStateToRead(const std::string& path);
/// Opens a state; makes one where there is no file or an empty one. Throws StateError for any other file,
/// which it leaves as it is.
std::unique_ptr<Database> openStateToWrite(const std::string& path);

/// Gets the file ready for many small transactions. On a local file system they go to a log of their own
/// (WAL) and others may read meanwhile; elsewhere the file is locked as a whole.
void beginWriting(Database& database, const std::string& path);
/// Makes it one plain file again. As long as another process reads it, it stays as it is; the next writer
/// does it then.
void endWriting(Database& database);

/// The path of the file behind all symbolic links, so that the files beside it have one name only. The path
/// itself when there is no file yet.
std::string realStatePath(const std::string& path);

}  // namespace archive
