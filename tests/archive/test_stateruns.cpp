// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/archive/statefixture.h"
#include "tests/support/propertysettings.h"
#include "tools/zmvutil/archive/src/database.h"
#include "tools/zmvutil/archive/src/outcome.h"
#include "tools/zmvutil/archive/src/search.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <thread>

namespace krx::test {
namespace {

using archive::Change;
using archive::InputRecord;
using archive::InputStamp;
using archive::RunInfo;
using archive::State;

using Key = std::pair<std::string, std::string>;  // root, name

/// What a state knows of an input, in the simplest form.
struct Known
{
    struct Result
    {
        InputStamp stamp;
        std::string settings;
        std::string outcome;
        bool isReusable = false;
        unsigned number = 0;  // of all results
    };
    bool isRenewed() const { return !ended || !latest || latest->number != ended->number; }

    std::optional<Result> ended;     // of the last run that ended
    std::optional<Change> standing;  // in it; absent when it had no result there
    std::optional<Result> latest;    // of any run

    Change changeTo(const std::string& outcome) const
    {
        return !ended || standing == Change::kGone ? Change::kNew
                                                   : archive::changeBetween(ended->outcome, outcome);
    }
};

/// Makes the same random runs over a state and over a model of it, which knows nothing of files.
class Runs
{
public:
    explicit Runs(std::string path) : m_path(std::move(path)) {}

    void step(unsigned seed)
    {
        m_random.seed(seed);
        changeWorld();
        const RunInfo run = chooseRun();
        if (!chance(20)) {
            State state(m_path, State::Mode::kWrite);
            perform(&state, run, false);
            return;
        }
        const auto random = m_random;
        const int status = inChild([&] {
            State state(m_path, State::Mode::kWrite);
            perform(&state, run, true);
            std::this_thread::sleep_for(std::chrono::seconds(1));
            return ::testing::Test::HasFailure() ? 1 : 0;
        });
        ASSERT_EQ(status, 0);
        m_random = random;
        perform(nullptr, run, true);
    }

    void expectSameList()
    {
        expectWholeFile();
        State state(m_path, State::Mode::kRead);
        EXPECT_EQ(state.hasUnfinishedRun(), m_isUnfinished);
        if (!m_hasEnded)
            return;
        EXPECT_EQ(state.lastRun().roots, m_last.roots);
        EXPECT_EQ(state.totals()->inputs, m_inputs);
        EXPECT_EQ(state.totals()->bytes, m_bytes);
        auto entry = m_known.begin();
        const auto skip = [&] {
            entry = std::find_if(entry, m_known.end(), [](const auto& e) { return e.second.standing; });
        };
        skip();
        state.forEach([&](const InputRecord& record) {
            EXPECT_NE(entry, m_known.end());
            EXPECT_EQ(Key(record.root, record.name), entry->first);
            EXPECT_EQ(outcomeOf(record), entry->second.ended->outcome);
            EXPECT_EQ(record.change, entry->second.standing);
            EXPECT_EQ(record.report.path, "/media/" + record.root + "/" + record.name);
            ++entry;
            skip();
            return true;
        });
        EXPECT_EQ(entry, m_known.end());
    }

private:
    // Also without results that no input has.
    void expectWholeFile() const
    {
        const archive::Database database(m_path, archive::Database::Access::kRead);
        for (const char* const sql :
             {"SELECT count(*) FROM pragma_integrity_check WHERE integrity_check <> 'ok'",
              "SELECT count(*) FROM result WHERE id NOT IN (SELECT ifnull(result, 0) FROM input"
              " UNION SELECT ifnull(fresh, 0) FROM input)"})
        {
            archive::Statement statement(database, sql);
            archive::Rows rows = statement.run();
            EXPECT_TRUE(rows.next() && rows.integer(0) == 0) << sql;
        }
    }

    struct Input
    {
        InputStamp stamp;
        Kind kind = kSound;
        bool isThere = false;
    };

    unsigned below(unsigned n) { return static_cast<unsigned>(m_random() % n); }
    bool chance(unsigned percent) { return below(100) < percent; }

    void changeWorld()
    {
        static const std::vector<std::string> kNames = {"", "it's\n\xff", "x/1", "x/2", "x/3", "y/1", "y/2"};
        for (const char* const root : {"a", "b\xfe"}) {
            for (const std::string& name : kNames) {
                Input& input = m_world[{root, name}];
                if (chance(15))
                    input.isThere = !input.isThere;
                if (chance(30))
                    input = {{below(3), below(2), below(2)}, static_cast<Kind>(below(kCrashed)), true};
            }
        }
    }

    RunInfo chooseRun()
    {
        RunInfo run =
            makeRun(chance(70) ? std::vector<std::string>{"a", "b\xfe"} : std::vector<std::string>{"a"});
        if (chance(10))
            run.settings = "other";
        if (chance(20)) {
            run.shards = 2;
            run.shard = 1 + below(2);
        }
        return run;
    }

    static bool isOf(const Key& key, const RunInfo& run)
    {
        return std::count(run.roots.begin(), run.roots.end(), key.first) != 0 &&
               (run.shards == 1 || archive::shardOf(key.second, run.shards) == run.shard);
    }

    // Without a state, only the model goes on.
    void perform(State* state, const RunInfo& run, bool isKilled)
    {
        if (state)
            state->beginRun(run);
        m_isUnfinished = true;
        m_unfinished = run;
        m_seen.clear();
        m_dropped.clear();
        const unsigned end = isKilled ? below(static_cast<unsigned>(m_world.size()) + 1) : ~0U;
        unsigned n = 0;
        for (const auto& [key, input] : m_world) {
            if (!input.isThere || !isOf(key, run))
                continue;
            if (n++ == end)
                break;
            takeInput(state, key, input);
        }
        if (!isKilled)
            endRun(state, run);
    }

    void takeInput(State* state, const Key& key, const Input& input)
    {
        const auto& [root, name] = key;
        Known& known = m_known[key];
        const bool stands = known.latest && known.latest->isReusable && known.latest->stamp == input.stamp &&
                            known.latest->settings == m_unfinished.settings;
        if (state) {
            const auto reused = state->reuse(root, name, "/media/" + root + "/" + name, input.stamp);
            ASSERT_EQ(reused.has_value(), stands);
            EXPECT_EQ(state->isOlder(root, name, INT64_MAX), !known.isRenewed());
            if (reused) {
                EXPECT_EQ(outcomeOf(*reused), known.latest->outcome);
                EXPECT_EQ(reused->change, known.changeTo(known.latest->outcome));
            }
        }
        if (stands)
            m_seen.insert(key);
        if (stands && !chance(10))
            return;
        EXPECT_TRUE(!state || state->beginInput(root, name, input.stamp));
        if (chance(10)) {
            if (state)
                state->dropInput(root, name);
            known.latest = known.ended;
            m_dropped.insert(key);
            m_seen.erase(key);
        } else {
            InputRecord record = makeRecord(root, name, input.kind);
            const std::string outcome = outcomeOf(record);
            if (state) {
                state->store(record, input.stamp);
                EXPECT_EQ(record.change, known.changeTo(outcome));
            }
            known.latest = {input.stamp, m_unfinished.settings, outcome, input.kind != kUnreadable,
                            ++m_results};
            m_seen.insert(key);
        }
    }

    void endRun(State* state, const RunInfo& run)
    {
        const std::vector<std::string> kept =
            chance(10) ? std::vector<std::string>{"a"} : std::vector<std::string>{};
        const auto isKnown = [&](const auto& entry) {
            return entry.second.ended && entry.second.standing != Change::kGone && entry.first.first == "a" &&
                   isOf(entry.first, run);
        };
        const auto known = std::count_if(m_known.begin(), m_known.end(), isKnown);
        if (state) {
            EXPECT_EQ(state->knownBelow("a"), static_cast<std::uint64_t>(known));
            expectDue(*state);
        }
        const std::uint64_t told = state ? state->endRun(kept) : 0;
        std::uint64_t gone = 0;
        m_inputs = m_seen.size();
        m_bytes = 0;
        for (auto& [key, entry] : m_known) {
            if (m_seen.count(key) != 0) {
                entry.standing = entry.changeTo(entry.latest->outcome);
                entry.ended = entry.latest;
                m_bytes += static_cast<std::uint64_t>(entry.latest->stamp.size);
            } else if (m_dropped.count(key) != 0) {
                entry.standing.reset();
            } else if (isOf(key, run) && (kept.empty() || key.first != kept[0])) {
                if (entry.standing == Change::kGone)
                    entry.ended.reset();
                entry.standing = entry.ended ? std::optional(Change::kGone) : std::nullopt;
                entry.latest = entry.ended;
                gone += entry.ended.has_value();
            }
        }
        EXPECT_EQ(told, state ? gone : 0);
        std::erase_if(m_known, [](const auto& entry) { return !entry.second.ended && !entry.second.latest; });
        m_hasEnded = true;
        m_isUnfinished = false;
        m_last = run;
    }

    // All results are of the same time, and so in no order.
    void expectDue(State& state) const
    {
        std::map<Key, InputStamp> due, expected;
        while (const auto found = state.nextDue(INT64_MAX)) {
            EXPECT_EQ(found->path, "/media/" + found->root + "/" + found->name);
            due.emplace(Key(found->root, found->name), found->stamp);
        }
        for (const Key& key : m_seen)
            if (const Known& known = m_known.at(key); !known.isRenewed())
                expected.emplace(key, known.ended->stamp);
        EXPECT_EQ(due, expected);
    }

    const std::string m_path;
    std::mt19937 m_random;
    std::map<Key, Input> m_world;  // what is on the disks
    std::map<Key, Known> m_known;
    RunInfo m_unfinished;
    RunInfo m_last;
    bool m_isUnfinished = false, m_hasEnded = false;
    std::set<Key> m_seen, m_dropped;
    std::uint64_t m_inputs = 0, m_bytes = 0;
    unsigned m_results = 0;
};

TEST(State, RunsAgreeWithAModel)
{
    const TempDir dir;
    Runs runs(dir.bytes("state"));
    const unsigned first = propertySeed() * 1000;
    for (unsigned i = 0; i < propertyCases(40) && !HasFailure(); ++i) {
        SCOPED_TRACE(first + i);
        runs.step(first + i);
        runs.expectSameList();
    }
}

TEST(State, TheOldestChecksAreDueFirst)
{
    const TempDir dir;
    const std::string path = dir.bytes("state");
    const std::vector<std::string> names = {"a", "b", "c", "d"};
    {
        State state(path, State::Mode::kWrite);
        state.beginRun(makeRun({"r"}));
        for (const std::string& name : names) {
            InputRecord record = makeRecord("r", name, kSound);
            ASSERT_TRUE(state.beginInput("r", name, {}));
            state.store(record, {});
        }
        state.endRun({});
    }
    archive::Database(path, archive::Database::Access::kWrite)
        .execute("UPDATE result SET checked_at = 100 * (id * 3 % 5)");  // 300, 100, 400, 200
    State state(path, State::Mode::kWrite);
    state.beginRun(makeRun({"r"}));
    for (const std::string& name : names)
        ASSERT_TRUE(state.reuse("r", name, "/media/r/" + name, {}));
    EXPECT_TRUE(state.isOlder("r", "a", 301));
    EXPECT_FALSE(state.isOlder("r", "a", 300));
    std::string due;
    while (const auto found = state.nextDue(400))
        due += found->name;
    EXPECT_EQ(due, "bda");
}

TEST(Outcome, Changes)
{
    struct Row
    {
        const char* before;
        const char* now;
        Change change;
    };
    for (const Row& row : std::vector<Row>{
             {"valid none 0", "valid none 0", Change::kSame},
             {"invalid damaged 0 -18 1", "valid none 0", Change::kFixed},
             {"invalid damaged 0 -18 1", "valid none 0 -110 7", Change::kFixed},
             {"crashed none 0", "valid none 0", Change::kFixed},
             {"valid none 0", "crashed none 0", Change::kNew},
             {"valid none 0", "invalid damaged 0 -18 1", Change::kNew},
             {"invalid damaged 0 -18 1", "invalid damaged 0 -18 2", Change::kNew},
             {"invalid damaged 0 -18 2", "invalid damaged 0 -18 1", Change::kNew},
             {"valid none 0 -111 1 -110 2", "valid none 0 -110 1", Change::kFixed},
             {"valid none 0 -110 2", "valid none 0 -111 1", Change::kNew},
             {"valid none 5 -110 2", "valid none 6 -110 1", Change::kNew},
             {"valid cut-short 0 -110 2", "valid none 0 -110 2", Change::kFixed},
             {"valid none 0 -110 2", "valid cut-short 0", Change::kNew},
             {"", "valid none 0", Change::kFixed},
         })
        EXPECT_EQ(archive::changeBetween(row.before, row.now), row.change) << row.before << " > " << row.now;

    InputRecord record = makeRecord("a", "b", kCut);
    record.report.findings.emplace_back().number = -110;
    record.report.findings.emplace_back();  // only a sentence
    record.report.findingsOmitted = 3;
    EXPECT_EQ(archive::outcomeOf(record), "invalid cut-short 3 -110 1 -18 2");
}

}  // namespace
}  // namespace krx::test
