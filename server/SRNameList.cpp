// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "server/SRNameList.h"

#include <algorithm>

SRNameList::SRNameList(std::initializer_list<const char*> names, unsigned repeated)
    : m_count(static_cast<unsigned>(names.size())),
      m_repeated(static_cast<unsigned short>(repeated)),
      m_names(new SRMBString[names.size()])
{
    std::transform(names.begin(), names.end(), m_names.get(), SRMBString::counted);
}

SRNameList::SRNameList(const SRMBString& className, std::vector<SRMBString>&& members, bool isDynamic)
    : m_count(static_cast<unsigned>(members.size())),
      m_className(className),
      m_repeated(0),
      m_isClass(true),
      m_isDynamic(isDynamic),
      m_names(members.empty() ? nullptr : new SRMBString[members.size()])
{
    std::move(members.begin(), members.end(), m_names.get());
}

std::string_view SRNameList::name(unsigned i) const
{
    if (m_isClass) {
        if (i == 0)
            return kClassNameEntry;
        --i;
    }
    if (i >= m_count && m_repeated > 0)
        i = m_count - m_repeated + (i - m_count) % m_repeated;
    return i < m_count ? m_names[i].view() : std::string_view();
}
