// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/archive/src/duelist.h"

#include "tools/zmvutil/archive/src/recordjson.h"

#include <stdexcept>

namespace archive {

DueList::DueList(Database& database, std::int64_t run, std::int64_t before) : m_database(database)
{
    m_database.execute("CREATE TEMP TABLE due(position INTEGER PRIMARY KEY, root INTEGER, name BLOB)");
    // A result that is fresh is of this run or of one before it that did not end.
    Statement(m_database,
              "INSERT INTO temp.due(root, name) SELECT root, name FROM input"
              " JOIN result ON result.id = input.result WHERE seen = ?1 AND checked_at < ?2"
              " AND (fresh IS NULL OR fresh = input.result) ORDER BY checked_at")
        .execute(run, before);
    m_next.emplace(m_database,
                   "SELECT position, label, prefix, due.name, size, modified_ns, members, record"
                   " FROM temp.due JOIN root ON root.id = due.root"
                   " JOIN input ON input.root = due.root AND input.name = due.name"
                   " JOIN result ON result.id = input.result"
                   " WHERE position > ?1 ORDER BY position LIMIT 1");
}

DueList::~DueList()
{
    m_next.reset();
    try {
        m_database.execute("DROP TABLE temp.due");
    } catch (const StateError&) {
        // It ends with the connection.
    }
}

std::optional<FoundInput> DueList::next()
{
    Rows row = m_next->run(m_last);
    if (!row.next())
        return std::nullopt;
    m_last = row.integer(0);
    FoundInput found;
    found.root = row.bytes(1);
    found.name = row.bytes(3);
    found.path = std::string(row.bytes(2)) + found.name;
    found.stamp.size = row.integer(4);
    found.stamp.modifiedNs = row.integer(5);
    found.stamp.members = static_cast<std::uint64_t>(row.integer(6));
    try {
        found.kind = fromJson(row.bytes(7)).report.kind;
    } catch (const std::runtime_error&) {
        m_database.failAsDamaged();
    }
    return found;
}

}  // namespace archive
