// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "util/krxassert.h"

#include <boost/numeric/conversion/converter.hpp>

#include <concepts>

namespace krx::util {

/// What a conversion does with a number that the target cannot hold.
class ConversionOverflow
{
public:
    /// Called by the converter; reports the assertion and returns.
    void operator()(boost::numeric::range_check_result result) const
    {
        if (result == boost::numeric::cInRange)
            return;
        s_direction = result == boost::numeric::cNegOverflow ? " Negative " : " Positive ";
        assertFailed("util/typeconvertor", 62);
    }

    /// The direction of the calling thread's last overflow, " Negative " or " Positive "; empty before the
    /// first.
    static const char* direction() { return s_direction; }

private:
    inline static thread_local const char* s_direction = "";
};

/// value as a Target. Out of range it reports the overflow and gives the low bits.
template <std::integral Target, std::integral Source>
Target convertInteger(Source value)
{
    using Converter =
        boost::numeric::converter<Target, Source, boost::numeric::conversion_traits<Target, Source>,
                                  ConversionOverflow>;
    return Converter::convert(value);
}

}  // namespace krx::util
