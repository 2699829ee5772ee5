// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/archive/src/state.h"

#include "tools/zmvutil/archive/src/duelist.h"
#include "tools/zmvutil/archive/src/outcome.h"
#include "tools/zmvutil/archive/src/recordjson.h"
#include "tools/zmvutil/archive/src/runningmarks.h"
#include "tools/zmvutil/archive/src/soonlock.h"
#include "tools/zmvutil/archive/src/statefile.h"
#include "tools/zmvutil/archive/src/statelist.h"
#include "tools/zmvutil/archive/src/statetables.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <ctime>
#include <mutex>
#include <new>
#include <thread>
#include <utility>

namespace archive {
namespace {

using Clock = std::chrono::steady_clock;

/// How long a transaction stays open. Half of what may be lost, since a commit takes its time as well.
constexpr std::chrono::milliseconds kCommitInterval{500};
/// Checks of an input that may end the process.
constexpr int kMaxCrashes = 2;

/// Says what the state knows of the system or of the program, and not of the input.
bool isReusable(const InputRecord& record)
{
    const vidlint::InputReport& report = record.report;
    return !record.crashed && !report.unreadable && !report.cancelled &&
           report.cause != vidlint::Cause::kUnreadable && report.cause != vidlint::Cause::kResources;
}

std::uint64_t sizeOf(const InputStamp& stamp)
{
    return static_cast<std::uint64_t>(std::max(stamp.size, 0LL));
}

/// What stands in front of the name in a path.
std::optional<std::string_view> prefixOf(std::string_view path, std::string_view name)
{
    if (!path.ends_with(name))
        return std::nullopt;
    return path.substr(0, path.size() - name.size());
}

}  // namespace

class State::Impl
{
public:
    Impl(const std::string& path, Mode mode);
    ~Impl();
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    void beginRun(const RunInfo& info);
    std::optional<InputRecord> reuse(const std::string& root, const std::string& name,
                                     const std::string& path, const InputStamp& stamp);
    bool isOlder(const std::string& root, const std::string& name, std::int64_t time);
    std::optional<FoundInput> nextDue(std::int64_t time);
    bool beginInput(const std::string& root, const std::string& name, const InputStamp& stamp);
    void store(InputRecord& record, const InputStamp& stamp);
    void dropInput(const std::string& root, const std::string& name);
    std::uint64_t knownBelow(const std::string& root);
    std::uint64_t endRun(const std::vector<std::string>& keptRoots);
    RunInfo lastRun();
    bool hasUnfinishedRun();
    std::optional<Totals> totals();
    void forEach(const std::function<bool(const InputRecord&)>& function);

private:
    using Lock = std::unique_lock<std::mutex>;

    template <typename Function>
    void marking(Function function);
    bool admit(const std::string& root, const std::string& name, const InputStamp& stamp);

    // All with the mutex held.
    template <typename Function>
    auto writing(Function function);
    void throwIfFailed() const;
    void fail(const char* text);
    void openTransaction();
    void commit();
    void commitLoop(const std::stop_token& stop);
    void countLeftMarks();
    void see(StoredInput& input, const InputStamp& stamp);
    bool readReusable(const std::string& root, const std::string& name, const InputStamp& stamp,
                      std::string& line, Change& change);
    Change storeLine(const InputRecord& record, const InputStamp& stamp, std::string_view outcome,
                     std::string_view line);
    std::optional<Change> changeOf(const std::optional<StoredInput>& known, std::string_view outcome);
    void dropResult(const std::string& root, const std::string& name);
    void forgetCrashes(const std::string& root, const std::string& name);
    void endInput(const std::string& root, const std::string& name);

    const std::string m_path;
    std::optional<RunningMarks> m_marks;  ///< before the database: nobody else writes while it closes
    std::unique_ptr<Database> m_database;
    std::optional<StateTables> m_tables;
    std::optional<DueList> m_due;

    std::mutex m_mutex;
    std::optional<StoredRun> m_run;  ///< that is going on
    Totals m_totals;                 ///< what it has seen
    std::string m_failure;           ///< why nothing can be written any more
    bool m_hasCrashes = false;
    std::optional<std::pair<std::string, std::string>> m_suspect;  ///< root and name, while it has a mark
    std::condition_variable m_suspectDone;
    bool m_isOpen = false;  ///< a transaction is
    Clock::time_point m_commitAt;
    std::condition_variable_any m_opened;
    std::jthread m_committer;
};

State::Impl::Impl(const std::string& path, Mode mode) : m_path(path)
{
    if (mode == Mode::kRead) {
        m_database = openStateToRead(path);
        // One picture of the state, even if a run ends meanwhile.
        m_database->execute("BEGIN");
        m_tables.emplace(*m_database);
        return;
    }
    m_marks.emplace(path, realStatePath(path));
    m_database = openStateToWrite(path);
    m_tables.emplace(*m_database);
    m_committer = std::jthread([this](const std::stop_token& stop) { commitLoop(stop); });
}

State::Impl::~Impl()
{
    if (m_committer.joinable()) {
        m_committer.request_stop();
        m_committer.join();
    }
    if (!m_run)
        return;
    try {
        commit();
        m_due.reset();
        endWriting(*m_database);
    } catch (const StateError&) {
        // What was not saved is checked again.
    }
}

/// Runs a function that may write. When it fails, the tables may be between two states, and nothing more of
/// the transaction is kept.
template <typename Function>
auto State::Impl::writing(Function function)
{
    throwIfFailed();
    try {
        return function();
    } catch (const StateError& error) {
        fail(error.what());
    } catch (const std::bad_alloc&) {
        fail((m_path + ": there is not enough memory to use the state").c_str());
    }
    throw StateError(m_failure);
}

void State::Impl::fail(const char* text)
{
    m_failure = text;
    m_suspectDone.notify_all();
}

void State::Impl::throwIfFailed() const
{
    if (!m_failure.empty())
        throw StateError(m_failure);
}

void State::Impl::openTransaction()
{
    if (m_isOpen)
        return;
    m_database->execute("BEGIN IMMEDIATE");
    m_isOpen = true;
    m_commitAt = Clock::now() + kCommitInterval;
    m_opened.notify_one();
}

void State::Impl::commit()
{
    if (!m_isOpen || !m_failure.empty())
        return;
    m_database->execute("COMMIT");
    m_isOpen = false;
}

void State::Impl::commitLoop(const std::stop_token& stop)
{
    Lock lock = lockSoon(m_mutex);
    while (!stop.stop_requested()) {
        m_opened.wait(lock, stop, [this] { return m_isOpen && m_failure.empty(); });
        m_opened.wait_until(lock, stop, m_commitAt, [this] { return !m_isOpen; });
        // It may be another transaction than the one that was waited for.
        if (stop.stop_requested() || Clock::now() < m_commitAt)
            continue;
        try {
            commit();
        } catch (const StateError& error) {
            fail(error.what());
        }
    }
}

void State::Impl::beginRun(const RunInfo& info)
{
    const Lock lock = lockSoon(m_mutex);
    writing([&] {
        commit();
        beginWriting(*m_database, m_path);
        m_database->execute("BEGIN IMMEDIATE");
        countLeftMarks();
        StoredRun run;
        run.info = info;
        run.plan = m_tables->planOf(info.settings, info.revision);
        run.id = m_tables->addRun(info, run.plan);
        m_database->execute("COMMIT");
        m_hasCrashes = m_tables->hasCrashes();
        m_totals = {};
        m_run = std::move(run);
    });
}

void State::Impl::countLeftMarks()
{
    // They are of the run that did not end.
    const auto plan = m_tables->unfinishedPlan();
    for (const RunningMarks::Mark& mark : m_marks->takeLeft()) {
        if (plan)
            m_tables->countCrash(m_tables->addRoot(mark.root), mark.name, *plan, mark.stamp);
    }
}

void State::Impl::see(StoredInput& input, const InputStamp& stamp)
{
    if (input.seen == m_run->id)
        return;
    input.seen = m_run->id;
    ++m_totals.inputs;
    m_totals.bytes += sizeOf(stamp);
}

std::optional<InputRecord> State::Impl::reuse(const std::string& root, const std::string& name,
                                              const std::string& path, const InputStamp& stamp)
{
    std::string line;
    Change change = Change::kSame;
    {
        const Lock lock = lockSoon(m_mutex);
        const bool isFound = writing([&] {
            if (!readReusable(root, name, stamp, line, change))
                return false;
            if (const auto prefix = prefixOf(path, name))
                m_tables->setPrefix(root, *prefix);
            return true;
        });
        if (!isFound)
            return std::nullopt;
    }
    InputRecord record;
    try {
        record = fromJson(line);
    } catch (const std::runtime_error&) {
        return std::nullopt;  // it is made anew
    }
    record.root = root;
    record.name = name;
    record.report.path = path;
    record.change = change;
    return record;
}

/// Marks the input as seen when its result stands.
bool State::Impl::readReusable(const std::string& root, const std::string& name, const InputStamp& stamp,
                               std::string& line, Change& change)
{
    const auto rootId = m_tables->findRoot(root);
    auto input = rootId ? m_tables->find(*rootId, name) : std::nullopt;
    const auto id = input ? input->latest() : std::nullopt;
    bool stands = false;
    if (id) {
        m_tables->withResult(*id, [&](const StoredResult& result) {
            stands = result.isReusable && result.plan == m_run->plan && result.stamp == stamp;
            if (stands)
                line = result.record;
        });
    }
    if (!stands)
        return false;
    if (!input->fresh && input->standing == Standing::kGone) {
        input->fresh = input->result;
        input->freshStanding = Standing::kNew;
    }
    if (input->freshStanding)
        change = static_cast<Change>(*input->freshStanding);
    openTransaction();
    see(*input, stamp);
    m_tables->update(*rootId, name, *input);
    return true;
}

bool State::Impl::isOlder(const std::string& root, const std::string& name, std::int64_t time)
{
    const Lock lock = lockSoon(m_mutex);
    throwIfFailed();
    const auto rootId = m_tables->findRoot(root);
    const auto input = rootId ? m_tables->find(*rootId, name) : std::nullopt;
    bool isOlder = false;
    if (input && input->result && input->latest() == input->result)
        m_tables->withResult(*input->result,
                             [&](const StoredResult& result) { isOlder = result.checkedAt < time; });
    return isOlder;
}

std::optional<FoundInput> State::Impl::nextDue(std::int64_t time)
{
    const Lock lock = lockSoon(m_mutex);
    return writing([&] {
        if (!m_due)
            m_due.emplace(*m_database, m_run->id, time);
        return m_due->next();
    });
}

/// Changes the marks, which have a lock of their own.
template <typename Function>
void State::Impl::marking(Function function)
{
    try {
        function();
    } catch (const StateError& error) {
        const Lock lock = lockSoon(m_mutex);
        fail(error.what());
        throw;
    }
}

/// False for an input that has ended the process too often. Of others that have, one is admitted at a time.
bool State::Impl::admit(const std::string& root, const std::string& name, const InputStamp& stamp)
{
    Lock lock = lockSoon(m_mutex);
    return writing([&] {
        const auto rootId = m_tables->findRoot(root);
        const int crashes = rootId ? m_tables->crashesOf(*rootId, name, m_run->plan, stamp) : 0;
        if (crashes >= kMaxCrashes)
            return false;
        if (crashes != 0) {
            m_suspectDone.wait(lock, [this] { return !m_suspect || !m_failure.empty(); });
            throwIfFailed();
            m_suspect.emplace(root, name);
        }
        return true;
    });
}

bool State::Impl::beginInput(const std::string& root, const std::string& name, const InputStamp& stamp)
{
    if (m_hasCrashes && !admit(root, name, stamp))
        return false;
    marking([&] { m_marks->add(root, name, stamp); });
    return true;
}

void State::Impl::store(InputRecord& record, const InputStamp& stamp)
{
    const bool hasPrefix = prefixOf(record.report.path, record.name).has_value();
    const std::string line = hasPrefix ? resultJson(record) : toJson(record);
    const std::string outcome = outcomeOf(record);
    {
        const Lock lock = lockSoon(m_mutex);
        writing([&] {
            record.change = storeLine(record, stamp, outcome, line);
            if (!record.crashed)
                forgetCrashes(record.root, record.name);
        });
    }
    endInput(record.root, record.name);
}

Change State::Impl::storeLine(const InputRecord& record, const InputStamp& stamp, std::string_view outcome,
                              std::string_view line)
{
    openTransaction();
    const std::int64_t root = m_tables->addRoot(record.root);
    if (const auto prefix = prefixOf(record.report.path, record.name))
        m_tables->setPrefix(record.root, *prefix);
    const auto known = m_tables->find(root, record.name);
    const Change change = changeOf(known, outcome).value_or(Change::kNew);

    StoredInput input = known.value_or(StoredInput());
    const auto old = input.fresh;
    input.fresh =
        m_tables->addResult({m_run->plan, std::time(nullptr), stamp, isReusable(record), outcome, line});
    input.freshStanding = static_cast<Standing>(change);
    see(input, stamp);
    if (known)
        m_tables->update(root, record.name, input);
    else
        m_tables->add(root, record.name, input);
    if (old && old != input.result)
        m_tables->deleteResult(*old);
    return change;
}

/// Absent when the input was not there in the last run that ended.
std::optional<Change> State::Impl::changeOf(const std::optional<StoredInput>& known, std::string_view outcome)
{
    if (!known || !known->result || known->standing == Standing::kGone)
        return std::nullopt;
    std::optional<Change> change;
    m_tables->withResult(
        *known->result, [&](const StoredResult& result) { change = changeBetween(result.outcome, outcome); });
    return change;
}

void State::Impl::dropInput(const std::string& root, const std::string& name)
{
    {
        const Lock lock = lockSoon(m_mutex);
        writing([&] {
            dropResult(root, name);
            forgetCrashes(root, name);
        });
    }
    endInput(root, name);
}

void State::Impl::dropResult(const std::string& root, const std::string& name)
{
    const auto rootId = m_tables->findRoot(root);
    auto input = rootId ? m_tables->find(*rootId, name) : std::nullopt;
    if (!input)
        return;
    openTransaction();
    if (input->seen == m_run->id) {
        --m_totals.inputs;
        m_tables->withResult(input->latest().value_or(0),
                             [this](const StoredResult& result) { m_totals.bytes -= sizeOf(result.stamp); });
    }
    const auto old = std::exchange(input->fresh, std::nullopt);
    input->freshStanding.reset();
    input->seen = -m_run->id;
    m_tables->update(*rootId, name, *input);
    if (old && old != input->result)
        m_tables->deleteResult(*old);
}

/// The process has outlived the check of the input.
void State::Impl::forgetCrashes(const std::string& root, const std::string& name)
{
    if (!m_hasCrashes)
        return;
    if (const auto rootId = m_tables->findRoot(root)) {
        openTransaction();
        m_tables->forgetCrashes(*rootId, name);
    }
}

void State::Impl::endInput(const std::string& root, const std::string& name)
{
    marking([&] { m_marks->remove(root, name); });
    if (!m_hasCrashes)
        return;
    // The next suspect begins when this one has no mark any more: if it ends the process, it does so alone.
    const Lock lock = lockSoon(m_mutex);
    if (m_suspect && m_suspect->first == root && m_suspect->second == name) {
        m_suspect.reset();
        m_suspectDone.notify_one();
    }
}

std::uint64_t State::Impl::knownBelow(const std::string& root)
{
    const Lock lock = lockSoon(m_mutex);
    throwIfFailed();
    const auto rootId = m_tables->findRoot(root);
    if (!rootId)
        return 0;
    return m_run ? m_tables->countKnown(*rootId, m_run->info.shard, m_run->info.shards)
                 : m_tables->countKnown(*rootId, 1, 1);
}

std::uint64_t State::Impl::endRun(const std::vector<std::string>& keptRoots)
{
    const Lock lock = lockSoon(m_mutex);
    return writing([&] {
        std::uint64_t gone = 0;
        openTransaction();
        for (const std::string& label : m_run->info.roots) {
            const bool isKept = std::find(keptRoots.begin(), keptRoots.end(), label) != keptRoots.end();
            if (const auto root = isKept ? std::nullopt : m_tables->findRoot(label))
                gone += m_tables->endRoot(*root, *m_run);
        }
        m_tables->endRun(*m_run, m_totals.inputs, m_totals.bytes);
        commit();
        m_run.reset();
        m_due.reset();
        endWriting(*m_database);
        return gone;
    });
}

RunInfo State::Impl::lastRun()
{
    const Lock lock = lockSoon(m_mutex);
    auto run = m_tables->lastEnded();
    if (!run)
        throw StateError(m_path + ": no run has ended yet");
    return std::move(run->info);
}

bool State::Impl::hasUnfinishedRun()
{
    const Lock lock = lockSoon(m_mutex);
    return m_tables->unfinishedPlan().has_value();
}

std::optional<State::Totals> State::Impl::totals()
{
    const Lock lock = lockSoon(m_mutex);
    std::optional<std::int64_t> inputs;
    std::optional<std::int64_t> bytes;
    m_tables->totalsOfLast(inputs, bytes);
    if (!inputs || !bytes || *inputs < 0 || *bytes < 0)
        return std::nullopt;
    return Totals{static_cast<std::uint64_t>(*inputs), static_cast<std::uint64_t>(*bytes)};
}

void State::Impl::forEach(const std::function<bool(const InputRecord&)>& function)
{
    const Lock lock = lockSoon(m_mutex);
    listInputs(*m_database, function);
}

State::State(const std::string& path, Mode mode) : m_impl(std::make_unique<Impl>(path, mode)) {}

State::~State() = default;

void State::beginRun(const RunInfo& run)
{
    m_impl->beginRun(run);
}

std::optional<InputRecord> State::reuse(const std::string& root, const std::string& name,
                                        const std::string& path, const InputStamp& stamp)
{
    return m_impl->reuse(root, name, path, stamp);
}

bool State::isOlder(const std::string& root, const std::string& name, std::int64_t time)
{
    return m_impl->isOlder(root, name, time);
}

std::optional<FoundInput> State::nextDue(std::int64_t time)
{
    return m_impl->nextDue(time);
}

bool State::beginInput(const std::string& root, const std::string& name, const InputStamp& stamp)
{
    return m_impl->beginInput(root, name, stamp);
}

void State::store(InputRecord& record, const InputStamp& stamp)
{
    m_impl->store(record, stamp);
}

void State::dropInput(const std::string& root, const std::string& name)
{
    m_impl->dropInput(root, name);
}

std::uint64_t State::knownBelow(const std::string& root)
{
    return m_impl->knownBelow(root);
}

std::uint64_t State::endRun(const std::vector<std::string>& keptRoots)
{
    return m_impl->endRun(keptRoots);
}

RunInfo State::lastRun()
{
    return m_impl->lastRun();
}

bool State::hasUnfinishedRun()
{
    return m_impl->hasUnfinishedRun();
}

std::optional<State::Totals> State::totals()
{
    return m_impl->totals();
}

void State::forEach(const std::function<bool(const InputRecord&)>& function)
{
    m_impl->forEach(function);
}

}  // namespace archive
