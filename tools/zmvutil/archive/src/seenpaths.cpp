// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/archive/src/seenpaths.h"

#include <sqlite3.h>
#include <stdexcept>
#include <string>

namespace archive {
namespace {

// The file goes with the process, so that it needs no journal and never has to be on the disk.
constexpr const char* kSetUp =
    "PRAGMA journal_mode = OFF; PRAGMA synchronous = OFF; PRAGMA cache_size = -8192;"
    "CREATE TABLE seen(path BLOB PRIMARY KEY) WITHOUT ROWID;"
    "BEGIN";

}  // namespace

void SeenPaths::Closer::operator()(sqlite3* database) const
{
    sqlite3_close(database);
}

void SeenPaths::Closer::operator()(sqlite3_stmt* statement) const
{
    sqlite3_finalize(statement);
}

SeenPaths::SeenPaths()
{
    sqlite3* database = nullptr;
    const int opened = sqlite3_open_v2("", &database, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    m_database.reset(database);
    if (opened != SQLITE_OK || sqlite3_exec(database, kSetUp, nullptr, nullptr, nullptr) != SQLITE_OK)
        fail();
    sqlite3_stmt* insert = nullptr;
    if (sqlite3_prepare_v2(database, "INSERT OR IGNORE INTO seen VALUES(?)", -1, &insert, nullptr) !=
        SQLITE_OK)
        fail();
    m_insert.reset(insert);
}

bool SeenPaths::insert(std::string_view path)
{
    sqlite3_bind_blob64(m_insert.get(), 1, path.data(), path.size(), SQLITE_STATIC);
    const int done = sqlite3_step(m_insert.get());
    sqlite3_reset(m_insert.get());
    if (done != SQLITE_DONE)
        fail();
    return sqlite3_changes(m_database.get()) != 0;
}

void SeenPaths::fail() const
{
    throw std::runtime_error(std::string("there is no room to note which paths were reached (") +
                             sqlite3_errmsg(m_database.get()) + "); some may be checked twice");
}

}  // namespace archive
