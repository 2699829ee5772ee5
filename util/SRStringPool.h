// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "util/bigendian.h"

#include <cstddef>
#include <iosfwd>
#include <memory>

/// The process-wide store of all string characters. A block is named by a pointer to its first character.
/// Before it are 3 bytes of length in characters (big-endian) and 1 byte of type, after the text is a zero
/// character. Every operation exists for narrow (char) and wide (wchar_t) blocks.
///
/// Texts up to the interning limit are shared: one counted block per distinct text. Longer texts have private
/// blocks with room to grow. A long text that is made for many holders has a counted block without room: 4
/// bytes of count precede its header. Interning, counting and releasing are safe from any thread; a private
/// block belongs to the one string that holds it.
class SRStringPool
{
public:
    enum BlockType : unsigned char
    {
        kInterned = 0,
        kPrivate = 1,
        kCounted = 2,
        kEmpty = 3,
    };

    /// Longest text whose length fits a block's header.
    static constexpr std::size_t kMaxLength = 0xFFFFFF;

    /// The one block of every empty text; never freed.
    static char* const g_chNull;
    static wchar_t* const g_wchNull;

    /// Longest text that is interned: the decimal number in the environment variable KRX_STRING_POOL when the
    /// pool is created, else 0 (nothing is interned).
    static int s_maxPoolStringSize;

    /// A pool of its own with the given interning limit, for tests; the library uses
    /// SRStrUtil::poolInstance().
    explicit SRStringPool(int maxPoolStringSize);
    ~SRStringPool();
    SRStringPool(const SRStringPool&) = delete;
    SRStringPool& operator=(const SRStringPool&) = delete;

    /// A block with the first n characters of text (n = -1: up to its zero character). A null or empty text
    /// gives the empty block. Throws SROutOfMemory when there is no memory or the text is above kMaxLength.
    char* get(const char* text, int n = -1);
    wchar_t* get(const wchar_t* text, int n = -1);

    /// As get(), with a counted block in place of a private one.
    char* getCounted(const char* text, int n = -1);
    /// The text of block for one more holder: block itself, unless it is private. Throws SROutOfMemory.
    char* share(char* block);
    wchar_t* share(wchar_t* block);

    /// Gives a block back. An interned block stays until collectGarbage().
    void release(char* block) noexcept;
    void release(wchar_t* block) noexcept;

    /// Replaces the text of block, in place where a private block has the room; returns the block that holds
    /// the new text. text may point into block.
    char* copy(char* block, const char* text, int n = -1);
    wchar_t* copy(wchar_t* block, const wchar_t* text, int n = -1);

    /// Appends to the text; the result is a private block (or block itself when nothing is appended). text
    /// may point into block.
    char* append(char* block, const char* text, int n = -1);
    wchar_t* append(wchar_t* block, const wchar_t* text, int n = -1);

    /// A private block with the same text: block itself when it is one.
    char* toMutable(char* block);
    wchar_t* toMutable(wchar_t* block);

    /// After a change in place: sets the length of a private block to that of its text up to the first zero
    /// character. A text that fills its room is cut to what the room allows.
    static void updateLength(char* block);
    static void updateLength(wchar_t* block);

    static int length(const char* block) { return headerLength(block); }
    static int length(const wchar_t* block) { return headerLength(block); }
    static BlockType type(const char* block) { return headerType(block); }
    static BlockType type(const wchar_t* block) { return headerType(block); }

    /// Characters allocated for a private block of the given length, terminator included. A text and its
    /// terminator leave one unused: the length of a text that filled all would imply more room than its block
    /// has.
    static constexpr std::size_t room(std::size_t length) { return ((length + 1) & ~std::size_t{31}) + 32; }

    /// The interning limit for a value of KRX_STRING_POOL: 0 for null and for anything but a decimal number,
    /// kMaxLength for any number above it.
    static int parseLimit(const char* text);

    /// Uses of an interned text; 0 when it is not interned.
    int useCount(const char* text) const;
    int useCount(const wchar_t* text) const;

    /// Frees every interned block that nobody uses and returns how many. One caller at a time: a second one
    /// gets 0 at once.
    int collectGarbage();
    /// Frees every interned block, used or not. Only for the end of the process.
    void term();
    /// Prints, for each length with interned texts, how many there are and how often they were asked for.
    void dumpStats(std::ostream& out) const;

private:
    static int headerLength(const void* block)
    {
        return static_cast<int>(krx::util::loadBig24(static_cast<const unsigned char*>(block) - 4));
    }
    static BlockType headerType(const void* block)
    {
        return static_cast<BlockType>(static_cast<const unsigned char*>(block)[-1]);
    }

    struct Impl;
    std::unique_ptr<Impl> m_impl;
};
