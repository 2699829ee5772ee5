// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/archive/src/statelist.h"

#include "tools/zmvutil/archive/src/recordjson.h"
#include "tools/zmvutil/archive/src/statetables.h"

#include <optional>
#include <string>

namespace archive {
namespace {

/// Rows come in rising order. In a damaged file the way through a tree may lead to the same rows again and
/// again, and would not end in a lifetime.
class RisingKeys
{
public:
    explicit RisingKeys(const Database& database) : m_database(database) {}

    void add(std::string_view key)
    {
        if (m_last && key <= *m_last)
            m_database.failAsDamaged();
        m_last = key;
    }

private:
    const Database& m_database;
    std::optional<std::string> m_last;
};

/// The record of a row: name, standing, result.
InputRecord recordOf(const Database& database, const Rows& row)
{
    const std::int64_t standing = row.integer(1);
    if (standing < 0 || standing > static_cast<int>(Change::kGone))
        database.failAsDamaged();
    InputRecord record;
    try {
        record = fromJson(row.bytes(2));
    } catch (const std::runtime_error&) {
        database.failAsDamaged();
    }
    record.name = row.bytes(0);
    record.change = static_cast<Change>(standing);
    return record;
}

}  // namespace

void listInputs(const Database& database, const std::function<bool(const InputRecord&)>& function)
{
    Statement roots(database, "SELECT label, id, prefix FROM root ORDER BY label");
    Statement inputs(database,
                     "SELECT name, standing, record FROM input LEFT JOIN result ON result.id = input.result"
                     " WHERE root = ?1 AND input.result IS NOT NULL AND standing <> ?2 ORDER BY name");
    RisingKeys labels(database);
    Rows root = roots.run();
    while (root.next()) {
        const std::string label(root.bytes(0));
        labels.add(label);
        RisingKeys names(database);
        Rows row = inputs.run(root.integer(1), static_cast<int>(Standing::kNoResult));
        while (row.next()) {
            names.add(row.bytes(0));
            InputRecord record = recordOf(database, row);
            record.root = label;
            // A record has a path of its own only where it is another one.
            if (record.report.path.empty())
                record.report.path = std::string(root.bytes(2)) + record.name;
            if (!function(record))
                return;
        }
    }
}

}  // namespace archive
