// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/archive/src/statetables.h"

#include "tools/zmvutil/archive/src/search.h"

#include <cstddef>
#include <ctime>
#include <limits>
#include <sqlite3.h>

namespace archive {
namespace {

/// Roots that are kept in memory; a list of paths may be millions of them.
constexpr std::size_t kCachedRoots = 64;

// Inputs of root ?1 and of shard ?3 of ?4 that run ?2 did not come across.
constexpr std::string_view kUnseen =
    " root = ?1 AND seen <> ?2 AND seen <> -?2 AND (?4 = 1 OR shard_of(name, ?4) = ?3)";

/// shard_of(NAME, SHARDS) in SQL.
void shardOfSql(sqlite3_context* context, int /*count*/, sqlite3_value** values)
{
    const void* const data = sqlite3_value_blob(values[0]);
    const auto size = static_cast<std::size_t>(sqlite3_value_bytes(values[0]));
    const std::string name = data ? std::string(static_cast<const char*>(data), size) : std::string();
    sqlite3_result_int64(context, shardOf(name, static_cast<unsigned>(sqlite3_value_int64(values[1]))));
}

void addFunctions(Database& database)
{
    const int code = sqlite3_create_function_v2(database.handle(), "shard_of", 2,
                                                SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_DIRECTONLY,
                                                nullptr, shardOfSql, nullptr, nullptr, nullptr);
    if (code != SQLITE_OK)
        database.fail(code);
}

unsigned unsignedOf(const Database& database, std::int64_t value)
{
    if (value < 0 || value > std::numeric_limits<unsigned>::max())
        database.failAsDamaged();
    return static_cast<unsigned>(value);
}

std::optional<std::int64_t> numberOf(std::optional<Standing> standing)
{
    if (!standing)
        return std::nullopt;
    return static_cast<std::int64_t>(*standing);
}

std::int64_t membersOf(const InputStamp& stamp)
{
    return static_cast<std::int64_t>(stamp.members);
}

template <typename... Values>
void runOnce(const Database& database, const std::string& sql, const Values&... values)
{
    Statement(database, sql).execute(values...);
}

}  // namespace

StateTables::StateTables(Database& database)
    : m_database(database),
      m_findRoot(database, "SELECT id, prefix FROM root WHERE label = ?1"),
      m_addRoot(database, "INSERT INTO root(label) VALUES(?1)"),
      m_setPrefix(database, "UPDATE root SET prefix = ?2 WHERE id = ?1"),
      m_find(database,
             "SELECT seen, result, standing, fresh, fresh_standing FROM input WHERE root = ?1 AND name = ?2"),
      m_add(database, "INSERT INTO input VALUES(?1, ?2, ?3, NULL, ?4, ?5, ?6)"),
      m_update(database,
               "UPDATE input SET seen = ?3, fresh = ?4, fresh_standing = ?5 WHERE root = ?1 AND name = ?2"),
      m_findResult(
          database,
          "SELECT plan, checked_at, size, modified_ns, members, reusable, outcome, record FROM result"
          " WHERE id = ?1"),
      m_addResult(database, "INSERT INTO result VALUES(NULL, ?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8)"),
      m_deleteResult(database, "DELETE FROM result WHERE id = ?1"),
      m_findCrash(database,
                  "SELECT plan, size, modified_ns, members, count FROM crash WHERE root = ?1 AND name = ?2"),
      m_countCrash(database, "INSERT OR REPLACE INTO crash VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7)"),
      m_deleteCrash(database, "DELETE FROM crash WHERE root = ?1 AND name = ?2")
{
    addFunctions(database);
}

std::int64_t StateTables::planOf(const std::string& settings, unsigned revision)
{
    runOnce(m_database, "INSERT OR IGNORE INTO plan(settings, revision) VALUES(?1, ?2)",
            std::string_view(settings), revision);
    Statement statement(m_database, "SELECT id FROM plan WHERE settings = ?1 AND revision = ?2");
    Rows rows = statement.run(std::string_view(settings), revision);
    if (!rows.next())
        m_database.failAsDamaged();
    return rows.integer(0);
}

std::optional<StoredRun> StateTables::lastEnded()
{
    Statement statement(
        m_database,
        "SELECT run.id, plan, started_at, ended_at, shard, shards, settings, revision FROM run"
        " LEFT JOIN plan ON plan.id = run.plan WHERE ended_at IS NOT NULL"
        " ORDER BY run.id DESC LIMIT 1");
    Rows rows = statement.run();
    if (!rows.next())
        return std::nullopt;
    StoredRun run;
    run.id = rows.integer(0);
    run.plan = rows.integer(1);
    run.info.startedAt = rows.integer(2);
    run.info.endedAt = rows.integer(3);
    run.info.shard = unsignedOf(m_database, rows.integer(4));
    run.info.shards = unsignedOf(m_database, rows.integer(5));
    run.info.settings = rows.bytes(6);
    run.info.revision = unsignedOf(m_database, rows.integer(7));

    Statement labels(m_database, "SELECT position, label FROM run_root WHERE run = ?1 ORDER BY position");
    Rows label = labels.run(run.id);
    while (label.next()) {
        // A damaged tree may lead to the same row again and again.
        if (label.integer(0) != static_cast<std::int64_t>(run.info.roots.size()))
            m_database.failAsDamaged();
        run.info.roots.emplace_back(label.bytes(1));
    }
    return run;
}

std::optional<std::int64_t> StateTables::unfinishedPlan()
{
    Statement statement(m_database, "SELECT plan FROM run WHERE ended_at IS NULL ORDER BY id DESC LIMIT 1");
    Rows rows = statement.run();
    if (!rows.next())
        return std::nullopt;
    return rows.integer(0);
}

std::int64_t StateTables::addRun(const RunInfo& info, std::int64_t plan)
{
    runOnce(m_database, "INSERT INTO run VALUES(NULL, ?1, NULL, ?2, ?3, ?4, NULL, NULL)", info.startedAt,
            plan, info.shard, info.shards);
    const std::int64_t id = sqlite3_last_insert_rowid(m_database.handle());
    Statement addLabel(m_database, "INSERT INTO run_root VALUES(?1, ?2, ?3)");
    for (std::size_t i = 0; i < info.roots.size(); ++i)
        addLabel.execute(id, i, std::string_view(info.roots[i]));
    return id;
}

void StateTables::totalsOfLast(std::optional<std::int64_t>& inputs, std::optional<std::int64_t>& bytes)
{
    Statement statement(m_database,
                        "SELECT inputs, bytes FROM run WHERE ended_at IS NOT NULL ORDER BY id DESC LIMIT 1");
    Rows rows = statement.run();
    if (!rows.next())
        return;
    inputs = rows.known(0);
    bytes = rows.known(1);
}

const StateTables::Root* StateTables::cachedRoot(const std::string& label)
{
    if (const auto found = m_roots.find(label); found != m_roots.end())
        return &found->second;
    Rows rows = m_findRoot.run(std::string_view(label));
    if (!rows.next())
        return nullptr;
    if (m_roots.size() == kCachedRoots)
        m_roots.clear();
    return &(m_roots[label] = {rows.integer(0), std::string(rows.bytes(1))});
}

std::optional<std::int64_t> StateTables::findRoot(const std::string& label)
{
    const Root* const root = cachedRoot(label);
    if (!root)
        return std::nullopt;
    return root->id;
}

std::int64_t StateTables::addRoot(const std::string& label)
{
    if (const auto id = findRoot(label))
        return *id;
    m_addRoot.execute(std::string_view(label));
    return sqlite3_last_insert_rowid(m_database.handle());
}

void StateTables::setPrefix(const std::string& label, std::string_view prefix)
{
    const Root* const root = cachedRoot(label);
    if (!root || root->prefix == prefix)
        return;
    m_setPrefix.execute(root->id, prefix);
    m_roots.erase(label);
}

std::optional<StoredInput> StateTables::find(std::int64_t root, std::string_view name)
{
    Rows rows = m_find.run(root, name);
    if (!rows.next())
        return std::nullopt;
    StoredInput input;
    input.seen = rows.integer(0);
    input.result = rows.known(1);
    input.standing = static_cast<Standing>(rows.integer(2));
    input.fresh = rows.known(3);
    if (const auto standing = rows.known(4))
        input.freshStanding = static_cast<Standing>(*standing);
    return input;
}

StoredResult StateTables::readResult(const Rows& rows)
{
    StoredResult result;
    result.plan = rows.integer(0);
    result.checkedAt = rows.integer(1);
    result.stamp.size = rows.integer(2);
    result.stamp.modifiedNs = rows.integer(3);
    result.stamp.members = static_cast<std::uint64_t>(rows.integer(4));
    result.isReusable = rows.integer(5) != 0;
    result.outcome = rows.bytes(6);
    result.record = rows.bytes(7);
    return result;
}

std::int64_t StateTables::addResult(const StoredResult& result)
{
    m_addResult.execute(result.plan, result.checkedAt, result.stamp.size, result.stamp.modifiedNs,
                        membersOf(result.stamp), result.isReusable ? 1 : 0, result.outcome, result.record);
    return sqlite3_last_insert_rowid(m_database.handle());
}

void StateTables::add(std::int64_t root, std::string_view name, const StoredInput& input)
{
    m_add.execute(root, name, input.seen, static_cast<std::int64_t>(input.standing), input.fresh,
                  numberOf(input.freshStanding));
}

void StateTables::update(std::int64_t root, std::string_view name, const StoredInput& input)
{
    m_update.execute(root, name, input.seen, input.fresh, numberOf(input.freshStanding));
}

std::uint64_t StateTables::countKnown(std::int64_t root, unsigned shard, unsigned shards)
{
    Statement statement(m_database,
                        "SELECT count(*) FROM input WHERE root = ?1 AND result IS NOT NULL AND standing <> ?2"
                        " AND (?4 = 1 OR shard_of(name, ?4) = ?3)");
    Rows rows = statement.run(root, static_cast<int>(Standing::kGone), shard, shards);
    return rows.next() ? static_cast<std::uint64_t>(rows.integer(0)) : 0;
}

bool StateTables::hasCrashes()
{
    Statement statement(m_database, "SELECT 1 FROM crash LIMIT 1");
    return statement.run().next();
}

int StateTables::crashesOf(std::int64_t root, std::string_view name, std::int64_t plan,
                           const InputStamp& stamp)
{
    Rows rows = m_findCrash.run(root, name);
    if (!rows.next() || rows.integer(0) != plan || rows.integer(1) != stamp.size ||
        rows.integer(2) != stamp.modifiedNs || rows.integer(3) != membersOf(stamp))
        return 0;
    return static_cast<int>(rows.integer(4));
}

void StateTables::countCrash(std::int64_t root, std::string_view name, std::int64_t plan,
                             const InputStamp& stamp)
{
    const int count = crashesOf(root, name, plan, stamp) + 1;
    m_countCrash.execute(root, name, plan, stamp.size, stamp.modifiedNs, membersOf(stamp), count);
}

std::uint64_t StateTables::endRoot(std::int64_t root, const StoredRun& run)
{
    constexpr auto kGone = static_cast<int>(Standing::kGone);
    const std::string where = "FROM input WHERE" + std::string(kUnseen);
    const auto runForUnseen = [&](const std::string& sql) {
        runOnce(m_database, sql, root, run.id, run.info.shard, run.info.shards, kGone);
    };
    // An input that only an unfinished run has seen was never there.
    runForUnseen("DELETE FROM result WHERE id IN (SELECT fresh " + where +
                 " AND fresh IS NOT NULL AND fresh IS NOT result"
                 " UNION ALL SELECT result " +
                 where + " AND standing = ?5 AND result IS NOT NULL)");
    runForUnseen("DELETE " + where + " AND (standing = ?5 OR result IS NULL)");
    runForUnseen("UPDATE input SET standing = ?5, fresh = NULL, fresh_standing = NULL WHERE" +
                 std::string(kUnseen));
    return static_cast<std::uint64_t>(sqlite3_changes(m_database.handle()));
}

void StateTables::endRun(const StoredRun& run, std::uint64_t inputs, std::uint64_t bytes)
{
    // A result without a fresh one was reused.
    runOnce(m_database, "UPDATE input SET standing = ?2 WHERE seen = ?1 AND fresh IS NULL AND standing <> ?2",
            run.id, static_cast<int>(Standing::kSame));
    runOnce(m_database,
            "DELETE FROM result WHERE id IN (SELECT result FROM input"
            " WHERE seen = ?1 AND fresh <> result)",
            run.id);
    runOnce(m_database,
            "UPDATE input SET result = fresh, standing = fresh_standing, fresh = NULL, fresh_standing = NULL"
            " WHERE seen = ?1 AND fresh IS NOT NULL",
            run.id);
    runOnce(m_database, "DELETE FROM input WHERE result IS NULL AND fresh IS NULL");
    runOnce(m_database, "UPDATE input SET standing = ?2 WHERE seen = -?1", run.id,
            static_cast<int>(Standing::kNoResult));
    runOnce(m_database,
            "DELETE FROM crash WHERE NOT EXISTS"
            " (SELECT 1 FROM input WHERE input.root = crash.root AND input.name = crash.name)");
    runOnce(m_database, "UPDATE run SET ended_at = ?2, inputs = ?3, bytes = ?4 WHERE id = ?1", run.id,
            static_cast<std::int64_t>(std::time(nullptr)), inputs, bytes);
    // Only now, since numbers of runs count on from the largest one.
    runOnce(m_database, "DELETE FROM run WHERE id <> ?1", run.id);
    runOnce(m_database, "DELETE FROM run_root WHERE run <> ?1", run.id);
}

}  // namespace archive
