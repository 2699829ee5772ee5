// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/archive/src/checkrun.h"

#include "tools/zmvutil/archive/src/commands.h"
#include "tools/zmvutil/archive/src/recordjson.h"
#include "tools/zmvutil/archive/src/soonlock.h"
#include "tools/zmvutil/archive/src/summarytext.h"
#include "tools/zmvutil/archive/src/textformat.h"
#include "tools/zmvutil/archive/src/version.h"

#include <vidlint/check.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <limits>
#include <new>
#include <poll.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace archive {
namespace {

/// Raised only when results can change.
constexpr unsigned kRevision = 1;

/// A result for an input without memory for its own.
vidlint::InputReport withoutMemory(const FoundInput& found)
{
    vidlint::InputReport report;
    report.path = found.path;
    report.kind = found.kind;
    report.verdict = vidlint::Verdict::kInvalid;
    report.cause = vidlint::Cause::kResources;
    return report;
}

/// A place in a semaphore for the length of a scope.
class Slot
{
public:
    explicit Slot(std::counting_semaphore<>* semaphore) : m_semaphore(semaphore)
    {
        if (m_semaphore)
            m_semaphore->acquire();
    }
    ~Slot()
    {
        if (m_semaphore)
            m_semaphore->release();
    }
    Slot(const Slot&) = delete;
    Slot& operator=(const Slot&) = delete;

private:
    std::counting_semaphore<>* m_semaphore;
};

}  // namespace

CheckRun::CheckRun(const CheckOptions& options)
    : m_options(options),
      m_hasColor(options.showsColor()),
      m_lineStart(options.showsProgress() && ::isatty(STDERR_FILENO) != 0 ? "\r\x1b[K" : ""),
      m_isOutputBesideProgress(*m_lineStart != '\0' && ::isatty(STDOUT_FILENO) != 0),
      m_search(options.search, [this](const std::string& sentence) { warn(sentence); }),
      m_progress(options.threads),
      m_openInputs(std::max(1U, options.openInputs))
{
}

CheckRun::~CheckRun() = default;

int CheckRun::run()
{
    RunInfo info;
    info.startedAt = std::time(nullptr);
    info.settings = m_options.settingsText;
    info.revision = kRevision;
    info.shard = m_options.search.shard;
    info.shards = m_options.search.shards;
    for (const SearchOptions::Root& root : m_options.search.roots)
        info.roots.push_back(root.label);
    if (!m_options.search.filesFrom.empty())
        info.roots.emplace_back();  // that of listed paths
    if (!m_options.state.empty())
        beginState(info);
    if (m_options.isJson)
        print(runJson(info, kVersion) + "\n");
    onAllThreads(&CheckRun::checkFound);
    if (m_hasDue && !m_cancel && !m_isCutOff)
        onAllThreads(&CheckRun::checkDue);
    return endRun();
}

void CheckRun::beginState(const RunInfo& info)
{
    m_state = std::make_unique<State>(m_options.state, State::Mode::kWrite);
    if (const auto totals = m_state->totals()) {
        m_hasLastRun = true;
        m_progress.expect(totals->inputs, totals->bytes);
    }
    m_state->beginRun(info);
    // What is there but has no result is not gone.
    m_search.setSkipped(
        [this](const std::string& root, const std::string& name) { m_state->dropInput(root, name); });
    if (m_options.rechecksAll)
        m_dueBefore = std::numeric_limits<std::int64_t>::max();
    else if (m_options.recheckOlder)
        m_dueBefore = info.startedAt - m_options.recheckOlder->count();
}

void CheckRun::onAllThreads(Step step)
{
    std::vector<std::jthread> threads;
    for (unsigned worker = 0; worker < m_options.threads; ++worker)
        threads.emplace_back([this, step, worker] { repeat(step, worker); });
}

void CheckRun::repeat(Step step, unsigned worker)
{
    const auto fail = [this](const char* text) {
        const std::lock_guard lock(m_outputMutex);
        if (!m_hasFailed.exchange(true))
            m_failure = text;
        m_cancel = true;
    };
    try {
        while (!m_cancel && (this->*step)(worker)) {
        }
    } catch (const StateError& error) {
        fail(error.what());
    } catch (const std::bad_alloc&) {
        fail("there is not enough memory to go on");
    }
}

bool CheckRun::isTimeUp() const
{
    return m_options.maxTime && std::chrono::steady_clock::now() - m_start > *m_options.maxTime;
}

/// The next input that the search finds.
bool CheckRun::checkFound(unsigned worker)
{
    if (isTimeUp()) {
        m_isCutOff = true;
        return false;
    }
    FoundInput found;
    {
        const auto lock = lockSoon(m_searchMutex);
        if (!m_search.next(found))
            return false;
    }
    if (!m_state || !takeStored(found))
        checkInput(worker, found);
    return true;
}

/// The unchanged input whose check is the oldest. Without time, those that are left keep their results.
bool CheckRun::checkDue(unsigned worker)
{
    std::optional<FoundInput> found;
    {
        const auto lock = lockSoon(m_searchMutex);
        found = m_state->nextDue(m_dueBefore);
        if (!found)
            return false;
        found->isRotational = m_search.isRotational(found->path);
    }
    std::optional<InputRecord> stored;
    if (isTimeUp())
        stored = m_state->reuse(found->root, found->name, found->path, found->stamp);
    if (stored)
        finishUnchecked(*stored, *found);
    else
        checkInput(worker, *found);
    return true;
}

void CheckRun::checkInput(unsigned worker, const FoundInput& found)
{
    InputRecord record;
    record.root = found.root;
    record.name = found.name;
    record.report.path = found.path;
    record.report.kind = found.kind;
    if (m_state && !m_state->beginInput(found.root, found.name, found.stamp)) {
        record.crashed = true;
        m_state->store(record, found.stamp);
        finishUnchecked(record, found);
        return;
    }
    bool hasResult = false;
    try {
        hasResult = checkOpen(worker, found, record);
        if (m_state && hasResult)
            m_state->store(record, found.stamp);
    } catch (const StateError&) {
        throw;
    } catch (...) {
        if (m_state)
            m_state->dropInput(found.root, found.name);
        throw;
    }
    if (hasResult)
        finish(record);
    else if (m_state)
        m_state->dropInput(found.root, found.name);
}

/// Takes the result of an earlier run if it still stands. One whose check is due is checked now, or after the
/// search where the time for checks is bounded, so that the oldest come first.
bool CheckRun::takeStored(const FoundInput& found)
{
    const auto stored = m_state->reuse(found.root, found.name, found.path, found.stamp);
    if (!stored)
        return false;
    const bool isDue = m_dueBefore != 0 && m_state->isOlder(found.root, found.name, m_dueBefore);
    if (isDue && !m_options.maxTime)
        return false;
    if (isDue)
        m_hasDue = true;
    else
        finishUnchecked(*stored, found);
    return true;
}

/// Checks the input itself. False when it has no result: the run ends, or it changed meanwhile.
bool CheckRun::checkOpen(unsigned worker, const FoundInput& found, InputRecord& record)
{
    m_progress.begin(worker, found.path);
    {
        const bool isLimited = m_options.openInputs != 0 || found.isRotational;
        const Slot slot(isLimited ? &m_openInputs : nullptr);
        {
            const auto together = m_memory.together();
            record.report = check(worker, found);
        }
        // Others may have had the memory that it needs.
        if (record.report.cause == vidlint::Cause::kResources && m_options.threads > 1) {
            const auto alone = m_memory.alone();
            record.report = check(worker, found);
        }
    }
    m_progress.end(worker);
    if (record.report.cancelled)
        return false;
    InputStamp now;
    if (record.report.unreadable || (Search::stampOf(found, now) && now == found.stamp))
        return true;
    const std::lock_guard lock(m_outputMutex);
    m_summary.changing = m_summary.changing.value_or(0) + 1;
    return false;
}

vidlint::InputReport CheckRun::check(unsigned worker, const FoundInput& found)
{
    try {
        vidlint::Settings settings = m_options.settings;
        settings.cancel = &m_cancel;
        settings.progress = [&](long long done, long long) { m_progress.advance(worker, done); };
        return vidlint::check(found.path, settings);
    } catch (const std::bad_alloc&) {
        return withoutMemory(found);
    }
}

void CheckRun::finish(const InputRecord& record)
{
    const bool isShown = !m_options.isQuiet && (!m_options.onlyNew || record.change == Change::kNew);
    std::string text;
    if (isShown)
        text = m_options.isJson ? toJson(record) + "\n" : linesOf(record, m_hasColor);
    const auto lock = lockSoon(m_outputMutex);
    m_summary.add(record);
    m_summary.failed = m_summary.failed.value_or(0) + m_options.failOn.matches(record);
    write(text);
}

void CheckRun::finishUnchecked(const InputRecord& record, const FoundInput& found)
{
    finish(record);
    m_progress.skip(static_cast<std::uint64_t>(std::max(found.stamp.size, 0LL)));
}

void CheckRun::print(const std::string& text)
{
    const std::lock_guard lock(m_outputMutex);
    write(text);
}

/// With the mutex of the output held.
void CheckRun::write(const std::string& text)
{
    if (text.empty())
        return;
    if (m_isOutputBesideProgress)
        std::fputs(m_lineStart, stderr);
    std::fwrite(text.data(), 1, text.size(), stdout);
    if (m_isOutputBesideProgress)
        std::fflush(stdout);
}

void CheckRun::flush()
{
    // What a pipe takes in one piece does not wait for its reader.
    pollfd output = {STDOUT_FILENO, POLLOUT, 0};
    const std::unique_lock lock(m_outputMutex, std::try_to_lock);
    if (lock && ::poll(&output, 1, 0) == 1 && (output.revents & POLLOUT) != 0)
        std::fflush(stdout);
}

void CheckRun::show(const std::string& text)
{
    // A thread whose output hangs has the lock.
    const std::unique_lock lock(m_outputMutex, std::try_to_lock);
    std::fwrite(text.data(), 1, text.size(), stderr);
}

void CheckRun::warn(const std::string& sentence)
{
    const std::string text = m_lineStart + ("vidlint-archive: " + escaped(sentence) + "\n");
    const std::lock_guard lock(m_outputMutex);
    std::fwrite(text.data(), 1, text.size(), stderr);
}

/// The roots below which inputs that were not found are not gone.
std::vector<std::string> CheckRun::keptRoots()
{
    std::vector<std::string> kept;
    for (const SearchOptions::Root& root : m_options.search.roots) {
        if (m_search.foundBelow(root.label) == 0 && m_state->knownBelow(root.label) != 0) {
            warn(root.path + ": there are no inputs any more; nothing is counted as gone");
            m_hasLostRoot = true;
            kept.push_back(root.label);
        } else if (!m_search.isComplete(root.label)) {
            kept.push_back(root.label);
        }
    }
    return kept;
}

int CheckRun::endRun()
{
    if (m_hasFailed)
        throw StateError(m_failure);
    m_summary.search = m_search.counts();
    m_summary.complete = !m_cancel && !m_isCutOff;
    if (m_state && m_summary.complete)
        m_summary.byChange[static_cast<std::size_t>(Change::kGone)] = m_state->endRun(keptRoots());
    m_summary.hasChanges = m_hasLastRun && m_summary.complete;
    if (m_options.isJson)
        print(summaryJson(m_summary) + "\n");
    else if (!m_options.isQuiet)
        print(summaryText(m_summary));
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        warn("the results cannot be written");
        return kStatusUsage;
    }
    if (m_hasLostRoot)
        return kStatusUsage;
    if (m_summary.failed.value_or(0) != 0)
        return kStatusFound;
    return m_summary.unreadable + m_summary.search->unreadable != 0 ? kStatusUnreadable : kStatusFine;
}

}  // namespace archive
