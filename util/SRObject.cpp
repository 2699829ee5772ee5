// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "util/SRObject.h"

#include <boost/core/demangle.hpp>

#include <functional>
#include <ostream>
#include <typeinfo>

int SRObject::_use() const
{
    return m_count.fetch_add(1, std::memory_order_relaxed) + 1;
}

int SRObject::_release() const
{
    // Release what this holder wrote, acquire what the others wrote before the object goes.
    const int count = m_count.fetch_sub(1, std::memory_order_acq_rel) - 1;
    if (count == 0)
        delete this;
    return count;
}

std::size_t SRObject::hashCode() const
{
    return std::hash<const SRObject*>()(this);
}

void SRObject::print(std::ostream& out) const
{
    out << boost::core::demangle(typeid(*this).name()) << " count=" << _get();
}
