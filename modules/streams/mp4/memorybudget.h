// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/streamparseerror.h"
#include "util/memoryquota.h"

#include <cstddef>
#include <limits>
#include <optional>
#include <utility>

namespace krx::mp4 {

/// The file wants more memory than its size allows. Never becomes a warning.
class MemoryLimitError : public krx::streams::StreamParseError
{
public:
    MemoryLimitError() : StreamParseError(krx::streams::kTableReadError) {}
};

/// The memory that an open file may use, by its size alone. Everything whose amount the file decides is
/// charged: tables, edit lists, descriptions, tags, chapters, fragments, protection texts, boundaries,
/// contexts, and the messages made of them. Otherwise boxes that all claim the same bytes, and a few bytes
/// that mean many, would multiply a small file.
///
/// A process stays below 16 MiB plus 8 times the file. About 5 MiB are the program itself. The rest above the
/// budget is for data held briefly, such as a text while it is copied, and for the fragments that stay loaded
/// after the parse (see FragmentLoader::keep).
class MemoryBudget
{
public:
    /// For small files, whose share would be nothing.
    static constexpr unsigned long long kFloor = 8U << 20;
    /// Tables are charged at most twice their bytes in the file ('stco' has 4 bytes per entry, charged as 8).
    /// Of the boxes that real files have many of, download hints and text descriptions cost most: with their
    /// metadata six to eight times their bytes. But they are a small part of the file.
    static constexpr unsigned long long kPerFileByte = 6;

    /// fileSize in bytes. What was charged stays charged.
    void setFileSize(long long fileSize)
    {
        m_limit = kFloor + kPerFileByte * static_cast<unsigned long long>(fileSize);
    }
    /// From now on the file takes what it keeps from the quota too, which it shares with others, and gives it
    /// back at its end. quota is not owned; null for none. Throws SROutOfMemory as charge does.
    void setQuota(krx::util::MemoryQuota* quota)
    {
        m_share.emplace(quota);
        m_granted = 0;
        takeShare(m_charged + m_exempt);
    }
    /// Before the memory is taken. Charges nothing when it is too much: throws MemoryLimitError when it is so
    /// for this file, SROutOfMemory when the quota is exhausted.
    void charge(unsigned long long bytes)
    {
        if (m_charged > m_limit || bytes > m_limit - m_charged)
            throw MemoryLimitError();
        if (m_charged + m_exempt + bytes > m_granted)
            takeShare(m_charged + m_exempt + bytes);
        m_charged += bytes;
    }
    /// What was charged is given back.
    void release(unsigned long long bytes) { m_charged -= bytes; }
    /// What was charged counts against the quota alone, until it is released.
    void exempt(unsigned long long bytes)
    {
        m_charged -= bytes;
        m_exempt += bytes;
    }
    void releaseExempt(unsigned long long bytes) { m_exempt -= bytes; }
    unsigned long long charged() const { return m_charged; }

private:
    /// The quota is shared between threads: few large steps are cheap.
    static constexpr unsigned long long kShareStep = 1U << 16;

    void takeShare(unsigned long long bytes)
    {
        const unsigned long long share = (bytes / kShareStep + 1) * kShareStep;
        if (!m_share->resize(share))
            throw SROutOfMemory();
        m_granted = share;
    }

    unsigned long long m_limit = kFloor;
    unsigned long long m_charged = 0;
    unsigned long long m_exempt = 0;
    unsigned long long m_granted = std::numeric_limits<unsigned long long>::max();
    std::optional<krx::util::QuotaShare> m_share;  ///< none without a quota
};

/// Bytes that are charged for as long as the object lives.
class MemoryCharge
{
public:
    MemoryCharge() = default;
    ~MemoryCharge() { release(); }
    MemoryCharge(MemoryCharge&& other) noexcept
        : m_budget(std::exchange(other.m_budget, nullptr)),
          m_bytes(std::exchange(other.m_bytes, 0)),
          m_isExempt(std::exchange(other.m_isExempt, false))
    {
    }
    MemoryCharge& operator=(MemoryCharge other) noexcept
    {
        std::swap(m_budget, other.m_budget);
        std::swap(m_bytes, other.m_bytes);
        std::swap(m_isExempt, other.m_isExempt);
        return *this;
    }

    /// The budget, which outlives the object, is the same in each call. Not after exempt.
    void add(MemoryBudget& budget, unsigned long long bytes)
    {
        budget.charge(bytes);
        m_budget = &budget;
        m_bytes += bytes;
    }
    /// From now on the bytes count against the quota alone.
    void exempt()
    {
        if (m_budget && !std::exchange(m_isExempt, true))
            m_budget->exempt(m_bytes);
    }
    /// The bytes stay charged.
    void keep() { m_budget = nullptr; }

private:
    void release()
    {
        if (m_budget)
            m_isExempt ? m_budget->releaseExempt(m_bytes) : m_budget->release(m_bytes);
    }

    MemoryBudget* m_budget = nullptr;
    unsigned long long m_bytes = 0;
    bool m_isExempt = false;
};

// What things take besides their own size.

/// A block of the heap: its header, and what rounding adds.
constexpr std::size_t kBlockOverhead = 24;

/// An element of a std::deque, which has blocks of 512 bytes. Long lists are deques: a vector that grows
/// holds its elements up to three times.
template <typename T>
constexpr std::size_t kDequeElement = sizeof(T) < 512 ? (512 + kBlockOverhead) / (512 / sizeof(T)) + 1
                                                      : sizeof(T) + kBlockOverhead;

}  // namespace krx::mp4
