// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "tools/zmvutil/archive/src/stateerror.h"

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace archive {

/// A call of SQLite failed.
class DatabaseError : public StateError
{
public:
    DatabaseError(const std::string& text, int code) : StateError(text), m_code(code) {}

    int code() const { return m_code; }  ///< the extended one of SQLite

private:
    int m_code;
};

/// One connection to an SQLite file. For one thread at a time. Everything throws DatabaseError.
class Database
{
public:
    enum class Access
    {
        kReadAlone,  ///< without locks and without a look at a journal: nobody may write meanwhile
        kRead,
        kWrite,
        kCreate,  ///< kWrite, and an empty file is made when there is none
    };

    /// path is bytes, and always that of a file, whatever it looks like.
    Database(const std::string& path, Access access);

    sqlite3* handle() const { return m_handle.get(); }
    /// Runs statements that give no rows, or whose rows do not matter.
    void execute(const char* sql);
    /// Whether nobody may write through this connection.
    bool isReadOnly() const;

    /// The sentence for a code of SQLite, with the path in front.
    [[noreturn]] void fail(int code) const;
    [[noreturn]] void failAsDamaged() const;

private:
    struct Closer
    {
        void operator()(sqlite3* handle) const;
    };

    std::string m_path;
    std::unique_ptr<sqlite3, Closer> m_handle;
};

/// One execution of a Statement, which is free for the next one at the end. Columns count from 0.
class Rows
{
public:
    Rows(const Database& database, sqlite3_stmt* statement) : m_database(database), m_statement(statement) {}
    ~Rows();
    Rows(const Rows&) = delete;
    Rows& operator=(const Rows&) = delete;

    /// Goes to the next row; false after the last one.
    bool next();
    std::int64_t integer(int column) const;
    /// Absent for NULL.
    std::optional<std::int64_t> known(int column) const;
    /// Valid until the next call of next().
    std::string_view bytes(int column) const;

private:
    const Database& m_database;
    sqlite3_stmt* m_statement;
};

/// A prepared statement. It must not outlive its database.
class Statement
{
public:
    Statement(const Database& database, std::string_view sql);

    /// Runs it with values for ?1, ?2 and so on: integers, bytes, or nothing for NULL. The bytes must stay
    /// valid as long as the rows.
    template <typename... Values>
    Rows run(const Values&... values)
    {
        int index = 0;
        (bind(++index, values), ...);
        return {m_database, m_statement.get()};
    }
    /// Runs it to its end.
    template <typename... Values>
    void execute(const Values&... values)
    {
        Rows rows = run(values...);
        while (rows.next()) {
        }
    }

private:
    struct Finalizer
    {
        void operator()(sqlite3_stmt* statement) const;
    };

    void bind(int index, std::int64_t value);
    void bind(int index, std::string_view bytes);
    void bind(int index, std::optional<std::int64_t> value);
    template <std::integral T>
    void bind(int index, T value)
    {
        bind(index, static_cast<std::int64_t>(value));
    }
    void check(int code) const;

    const Database& m_database;
    std::unique_ptr<sqlite3_stmt, Finalizer> m_statement;
};

}  // namespace archive
