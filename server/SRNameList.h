// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "server/SRData.h"

#include <atomic>
#include <initializer_list>
#include <memory>
#include <string_view>
#include <vector>

/// Names that the first entries of many arrays share, and perhaps the value of the very first entry. Counted,
/// held by SRPtr; it never changes, so any thread may read it. Making one throws SROutOfMemory or
/// std::bad_alloc. A class description that is read takes 40 bytes and 8 for each member.
class SRNameList
{
public:
    /// The entry with an object's class name, which stands first.
    static constexpr char kClassNameEntry[] = "constructor";

    /// Names; the last `repeated` of them repeat for all further entries.
    SRNameList(std::initializer_list<const char*> names, unsigned repeated);
    /// "constructor", whose value is the class name, and the members.
    SRNameList(const SRMBString& className, std::vector<SRMBString>&& members, bool isDynamic);
    SRNameList(const SRNameList&) = delete;
    SRNameList& operator=(const SRNameList&) = delete;

    void _use() const { m_uses.fetch_add(1, std::memory_order_relaxed); }
    void _release() const
    {
        if (m_uses.fetch_sub(1, std::memory_order_acq_rel) == 1)
            delete this;
    }

    /// Objects of the class may have more members than the list.
    bool isDynamic() const { return m_isDynamic; }
    /// Number of members of a class.
    unsigned memberCount() const { return m_count; }
    /// The list has the value of the first entry.
    bool hasFirstValue() const { return m_isClass; }
    const SRData& firstValue() const { return m_className; }
    /// Name of entry i; empty past the end.
    std::string_view name(unsigned i) const;

private:
    ~SRNameList() = default;

    mutable std::atomic<int> m_uses{0};
    unsigned m_count;
    const SRData m_className{};
    const unsigned short m_repeated;
    const bool m_isClass = false;
    const bool m_isDynamic = false;
    std::unique_ptr<SRMBString[]> m_names;
};

using SRNameListPtr = SRPtr<SRNameList>;
