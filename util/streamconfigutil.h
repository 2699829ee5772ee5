// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <array>
#include <cstddef>
#include <limits>
#include <string_view>

class IQVStreamContext;

namespace krx::util {

/// A key of the configuration, and the values that it takes.
struct SettingKey
{
    enum class Kind
    {
        kBool,
        kNumber,
    };

    const char* name = nullptr;
    Kind kind = Kind::kBool;
    unsigned min = 0;  ///< of a number
    unsigned max = 0;  ///< of a number
};

/// Whether a value is exactly "true" or "false", or for a number a decimal one without sign or blanks that
/// lies within the range. What is read from a configuration may be more (see StreamConfig).
bool isValidSetting(const SettingKey& key, std::string_view value);

/// A row of a module's table of settings: a key, and the field of Config that it sets, if there is one.
template <typename Config>
struct Setting
{
    constexpr Setting(const char* name, bool Config::*field)
        : key{name, SettingKey::Kind::kBool, 0, 0}, flag(field)
    {
    }
    constexpr Setting(const char* name, unsigned Config::*field, unsigned min = 0,
                      unsigned max = std::numeric_limits<unsigned>::max())
        : key{name, SettingKey::Kind::kNumber, min, max}, number(field)
    {
    }

    SettingKey key;
    bool Config::*flag = nullptr;
    unsigned Config::*number = nullptr;
};

/// The keys of a table.
template <typename Config, std::size_t N>
constexpr std::array<SettingKey, N> keysOf(const Setting<Config> (&table)[N])
{
    std::array<SettingKey, N> keys{};
    for (std::size_t i = 0; i < N; ++i)
        keys[i] = table[i].key;
    return keys;
}

/// Reads the settings of a stream module from its context.
class StreamConfig
{
public:
    StreamConfig() = delete;

    /// Asks for the text of a setting. *buffer is an array (new[]) of size bytes; where the text needs more,
    /// it is replaced by a larger, zeroed one and size follows. The text ends at the first zero byte or at
    /// size. False when the key is not configured or cannot be read.
    static bool readConfig(IQVStreamContext* context, const char* key, char** buffer, unsigned& size);

    /// A decimal number; a negative one counts as 0. value changes only when the number lies within [min,
    /// max]. Returns whether the key is configured.
    static bool readConfigUnsigned(IQVStreamContext* context, const char* key, unsigned& value, unsigned min,
                                   unsigned max);

    /// value changes only on the exact texts "true" and "false". Returns whether the key is configured.
    static bool readConfigBool(IQVStreamContext* context, const char* key, bool& value);
};

}  // namespace krx::util
