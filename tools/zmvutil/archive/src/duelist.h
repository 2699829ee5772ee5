// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "tools/zmvutil/archive/src/database.h"
#include "tools/zmvutil/archive/src/search.h"

#include <cstdint>
#include <optional>

namespace archive {

/// Inputs whose results a run took from an ended run, those with the oldest checks first. The list is a table
/// on disk of its own, so that memory stays flat. For one thread at a time, as the database. Everything
/// throws StateError.
class DueList
{
public:
    /// Lists what that run has seen and what was checked before that time, seconds since 1970. The database
    /// must outlive the list.
    DueList(Database& database, std::int64_t run, std::int64_t before);
    ~DueList();
    DueList(const DueList&) = delete;
    DueList& operator=(const DueList&) = delete;

    /// The next input; absent at the end. isRotational is not known.
    std::optional<FoundInput> next();

private:
    Database& m_database;
    std::optional<Statement> m_next;
    std::int64_t m_last = 0;  ///< position of the last one that was given
};

}  // namespace archive
