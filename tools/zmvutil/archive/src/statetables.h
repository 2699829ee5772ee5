// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "tools/zmvutil/archive/src/database.h"
#include "tools/zmvutil/archive/src/inputrecord.h"
#include "tools/zmvutil/archive/src/runinfo.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace archive {

/// A run, as the table has it.
struct StoredRun
{
    std::int64_t id = 0;
    std::int64_t plan = 0;
    RunInfo info;
};

/// What became of an input in a run. Numbers of the file.
enum class Standing
{
    kNew = static_cast<int>(Change::kNew),
    kSame = static_cast<int>(Change::kSame),
    kFixed = static_cast<int>(Change::kFixed),
    kGone = static_cast<int>(Change::kGone),
    kNoResult = 4,  ///< it changed while it was checked
};

/// A result that is stored.
struct StoredResult
{
    std::int64_t plan = 0;
    std::int64_t checkedAt = 0;  ///< seconds since 1970
    InputStamp stamp;
    bool isReusable = false;
    std::string_view outcome;
    std::string_view record;  ///< a line of JSON
};

/// An input, with the results that it has.
struct StoredInput
{
    std::int64_t seen = 0;
    std::optional<std::int64_t> result;  ///< that of the last run that ended
    Standing standing = Standing::kNew;
    std::optional<std::int64_t> fresh;  ///< that of the runs since then
    std::optional<Standing> freshStanding;

    std::optional<std::int64_t> latest() const { return fresh ? fresh : result; }
};

/// The statements of a state, without locks and transactions. For one thread at a time. Everything throws
/// StateError.
class StateTables
{
public:
    /// The database must outlive the object.
    explicit StateTables(Database& database);

    // Runs.

    std::int64_t planOf(const std::string& settings, unsigned revision);
    std::optional<StoredRun> lastEnded();
    std::optional<std::int64_t> unfinishedPlan();
    /// Returns the number of the run, which none has had before that an input still knows.
    std::int64_t addRun(const RunInfo& info, std::int64_t plan);
    void totalsOfLast(std::optional<std::int64_t>& inputs, std::optional<std::int64_t>& bytes);

    // Inputs. A root is a number for its label.

    std::optional<std::int64_t> findRoot(const std::string& label);
    std::int64_t addRoot(const std::string& label);
    /// Notes what stands in front of the names of a root.
    void setPrefix(const std::string& label, std::string_view prefix);
    std::optional<StoredInput> find(std::int64_t root, std::string_view name);
    /// Calls use with a result; false when it is not there. Its views are valid for the call.
    template <typename Use>
    bool withResult(std::int64_t id, Use use)
    {
        Rows rows = m_findResult.run(id);
        if (!rows.next())
            return false;
        use(readResult(rows));
        return true;
    }
    std::int64_t addResult(const StoredResult& result);
    void deleteResult(std::int64_t id) { m_deleteResult.execute(id); }
    void add(std::int64_t root, std::string_view name, const StoredInput& input);
    /// Changes seen, fresh and freshStanding.
    void update(std::int64_t root, std::string_view name, const StoredInput& input);
    /// Inputs below the root that the last run that ended had, of that shard.
    std::uint64_t countKnown(std::int64_t root, unsigned shard, unsigned shards);

    // Crashes.

    bool hasCrashes();
    void countCrash(std::int64_t root, std::string_view name, std::int64_t plan, const InputStamp& stamp);
    int crashesOf(std::int64_t root, std::string_view name, std::int64_t plan, const InputStamp& stamp);
    void forgetCrashes(std::int64_t root, std::string_view name) { m_deleteCrash.execute(root, name); }

    // The end of a run.

    /// What was not seen below the root is gone; what was gone before is forgotten. Returns how many are
    /// gone.
    std::uint64_t endRoot(std::int64_t root, const StoredRun& run);
    /// The results of the run become those of the last run that ended.
    void endRun(const StoredRun& run, std::uint64_t inputs, std::uint64_t bytes);

private:
    struct Root
    {
        std::int64_t id = 0;
        std::string prefix;
    };

    const Root* cachedRoot(const std::string& label);
    static StoredResult readResult(const Rows& rows);

    Database& m_database;
    std::map<std::string, Root> m_roots;  ///< some of them
    Statement m_findRoot, m_addRoot, m_setPrefix;
    Statement m_find, m_add, m_update;
    Statement m_findResult, m_addResult, m_deleteResult;
    Statement m_findCrash, m_countCrash, m_deleteCrash;
};

}  // namespace archive
