// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <memory>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace archive {

/// A set of paths of any size in bounded memory: what exceeds a few MiB goes to an unnamed temporary file.
/// For one thread at a time. Everything throws std::runtime_error, with a sentence, when there is no room.
class SeenPaths
{
public:
    SeenPaths();

    /// False when the path was inserted before. Paths are bytes.
    bool insert(std::string_view path);

private:
    struct Closer
    {
        void operator()(sqlite3* database) const;
        void operator()(sqlite3_stmt* statement) const;
    };
    [[noreturn]] void fail() const;

    std::unique_ptr<sqlite3, Closer> m_database;
    std::unique_ptr<sqlite3_stmt, Closer> m_insert;
};

}  // namespace archive
