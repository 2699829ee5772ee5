// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "util/streamconfigutil.h"

#include "interfaces/IQVStreamContext.h"
#include "util/krxassert.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <system_error>

namespace krx::util {

namespace {

constexpr const char* kStreamConfigPlace = "util/streamconfigutil";
constexpr int kConfigMemoryLine = 46;
constexpr unsigned kInitialSize = 64;

/// The text of a setting; false when the key is not configured.
bool readText(IQVStreamContext* context, const char* key, std::string& text)
{
    struct Buffer
    {
        ~Buffer() { delete[] text; }
        unsigned size = kInitialSize;
        char* text = new char[kInitialSize]();
    } buffer;
    if (!StreamConfig::readConfig(context, key, &buffer.text, buffer.size))
        return false;
    text.assign(buffer.text, ::strnlen(buffer.text, buffer.size));
    return true;
}

}  // namespace

bool isValidSetting(const SettingKey& key, std::string_view value)
{
    if (key.kind == SettingKey::Kind::kBool)
        return value == "true" || value == "false";
    unsigned number = 0;
    const char* const end = value.data() + value.size();
    const auto [stop, error] = std::from_chars(value.data(), end, number);
    return error == std::errc() && stop == end && number >= key.min && number <= key.max;
}

bool StreamConfig::readConfig(IQVStreamContext* context, const char* key, char** buffer, unsigned& size)
{
    if (!context || !key || !buffer || !*buffer)
        return false;
    const auto ask = [&] {
        return context->getConfig(key, buffer, static_cast<int>(std::min<unsigned>(size, INT_MAX)));
    };
    const int needed = ask();
    if (needed <= 0)
        return needed == 0;

    auto* larger = new (std::nothrow) char[static_cast<unsigned>(needed)]();
    if (!larger) {
        assertFailed(kStreamConfigPlace, kConfigMemoryLine);
        return false;
    }
    delete[] * buffer;
    *buffer = larger;
    size = static_cast<unsigned>(needed);
    return ask() == 0;
}

bool StreamConfig::readConfigUnsigned(IQVStreamContext* context, const char* key, unsigned& value,
                                      unsigned min, unsigned max)
{
    std::string text;
    if (!readText(context, key, text))
        return false;
    const long number = std::max(std::strtol(text.c_str(), nullptr, 10), 0L);
    if (number >= static_cast<long>(min) && number <= static_cast<long>(max))
        value = static_cast<unsigned>(number);
    return true;
}

bool StreamConfig::readConfigBool(IQVStreamContext* context, const char* key, bool& value)
{
    std::string text;
    if (!readText(context, key, text))
        return false;
    if (text == (value ? "false" : "true"))
        value = !value;
    return true;
}

}  // namespace krx::util
