// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/archive/src/database.h"

#include <cstring>
#include <sqlite3.h>

namespace archive {
namespace {

/// How long a lock of another process is waited for. A writer that saves its work is done by then.
constexpr int kBusyTimeoutMs = 5000;

/// The path in a form that SQLite cannot take for anything but a file: "file:" and ":memory:" have a meaning
/// of their own.
std::string uriOf(const std::string& path, bool isImmutable)
{
    constexpr const char* kHexDigits = "0123456789ABCDEF";
    std::string uri = "file:";
    const std::string whole = path.starts_with('/') ? path : "./" + path;
    for (const char c : whole) {
        const auto byte = static_cast<unsigned char>(c);
        uri += '%';
        uri += kHexDigits[byte >> 4];
        uri += kHexDigits[byte & 15];
    }
    return isImmutable ? uri + "?immutable=1" : uri;
}

std::string withReason(const char* clause, int systemError)
{
    std::string text = clause;
    if (systemError != 0)
        text += std::string(": ") + std::strerror(systemError);
    return text;
}

std::string clauseOf(int code, sqlite3* handle)
{
    const int systemError = handle ? sqlite3_system_errno(handle) : 0;
    switch (code & 0xff) {
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
        case SQLITE_PROTOCOL:
            return "the state is in use by another process";
        case SQLITE_NOTADB:
            return "this is no state of vidlint-archive";
        case SQLITE_CORRUPT:
            return "the state is damaged";
        case SQLITE_FULL:
            return "the state cannot be written: no space is left on the disk";
        case SQLITE_READONLY:
            return "the state cannot be written: it is read-only";
        case SQLITE_CANTOPEN:
        case SQLITE_PERM:
            return withReason("the state cannot be opened", systemError);
        case SQLITE_IOERR:
            return code == SQLITE_IOERR_NOMEM
                       ? "there is not enough memory to use the state"
                       : withReason("the state cannot be read or written", systemError);
        case SQLITE_NOMEM:
            return "there is not enough memory to use the state";
        default:
            return std::string("the state cannot be used: ") + sqlite3_errstr(code);
    }
}

/// A state comes from elsewhere like any other file.
void protect(sqlite3* handle)
{
    sqlite3_db_config(handle, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(handle, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    sqlite3_db_config(handle, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
    sqlite3_db_config(handle, SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr);
    sqlite3_exec(handle, "PRAGMA cell_size_check = ON", nullptr, nullptr, nullptr);
}

}  // namespace

void Database::Closer::operator()(sqlite3* handle) const
{
    sqlite3_close(handle);
}

Database::Database(const std::string& path, Access access) : m_path(path)
{
    int flags = SQLITE_OPEN_URI | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE;
    if (access == Access::kRead || access == Access::kReadAlone)
        flags |= SQLITE_OPEN_READONLY;
    else
        flags |= SQLITE_OPEN_READWRITE;
    if (access == Access::kCreate)
        flags |= SQLITE_OPEN_CREATE;
    sqlite3* handle = nullptr;
    const int code =
        sqlite3_open_v2(uriOf(path, access == Access::kReadAlone).c_str(), &handle, flags, nullptr);
    m_handle.reset(handle);
    if (code != SQLITE_OK)
        fail(code);
    sqlite3_busy_timeout(handle, kBusyTimeoutMs);
    protect(handle);
}

void Database::execute(const char* sql)
{
    const int code = sqlite3_exec(handle(), sql, nullptr, nullptr, nullptr);
    if (code != SQLITE_OK)
        fail(code);
}

bool Database::isReadOnly() const
{
    return sqlite3_db_readonly(handle(), "main") != 0;
}

void Database::fail(int code) const
{
    throw DatabaseError(m_path + ": " + clauseOf(code, handle()), code);
}

void Database::failAsDamaged() const
{
    fail(SQLITE_CORRUPT);
}

Rows::~Rows()
{
    sqlite3_reset(m_statement);
}

bool Rows::next()
{
    const int code = sqlite3_step(m_statement);
    if (code == SQLITE_ROW)
        return true;
    if (code != SQLITE_DONE)
        m_database.fail(code);
    return false;
}

std::int64_t Rows::integer(int column) const
{
    return sqlite3_column_int64(m_statement, column);
}

std::optional<std::int64_t> Rows::known(int column) const
{
    if (sqlite3_column_type(m_statement, column) == SQLITE_NULL)
        return std::nullopt;
    return integer(column);
}

std::string_view Rows::bytes(int column) const
{
    const void* const data = sqlite3_column_blob(m_statement, column);
    const int size = sqlite3_column_bytes(m_statement, column);
    if (!data)
        return {};
    return {static_cast<const char*>(data), static_cast<std::size_t>(size)};
}

void Statement::Finalizer::operator()(sqlite3_stmt* statement) const
{
    sqlite3_finalize(statement);
}

Statement::Statement(const Database& database, std::string_view sql) : m_database(database)
{
    sqlite3_stmt* statement = nullptr;
    const int code = sqlite3_prepare_v3(database.handle(), sql.data(), static_cast<int>(sql.size()),
                                        SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
    m_statement.reset(statement);
    check(code);
}

void Statement::bind(int index, std::int64_t value)
{
    check(sqlite3_bind_int64(m_statement.get(), index, value));
}

void Statement::bind(int index, std::string_view bytes)
{
    // An empty view may have no address, which would be NULL.
    check(sqlite3_bind_blob64(m_statement.get(), index, bytes.empty() ? "" : bytes.data(), bytes.size(),
                              SQLITE_STATIC));
}

void Statement::bind(int index, std::optional<std::int64_t> value)
{
    if (value)
        bind(index, *value);
    else
        check(sqlite3_bind_null(m_statement.get(), index));
}

void Statement::check(int code) const
{
    if (code != SQLITE_OK)
        m_database.fail(code);
}

}  // namespace archive
