// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "server/SRMessage.h"
#include "server/amfwriter.h"
#include "util/SRException.h"
#include "util/SRString.h"

#include <memory>
#include <string_view>
#include <utility>
#include <vector>

/// A cursor over serialized bytes: a reader over bytes that it does not own, or a writer with a growing
/// buffer of its own. All integers and doubles are big-endian.
///
/// Bad data goes into the error trace. Then a throwing reader throws SRBreakConnection 1029; any other writes
/// the trace out, is marked bad and jumps to its end, so that every further read gives 0. Reading from a
/// writer or writing to a reader is reported and does nothing (a read gives 0).
///
/// Lengths and positions are bytes. A parser serves one thread at a time.
class SRDataParser : protected krx::AMFWriter
{
public:
    /// Text forms: a u16 or a u32 length in front of the bytes.
    static constexpr int kShortText = 2;
    static constexpr int kLongText = 12;
    static constexpr unsigned kMaxShortText = kAMF0MaxShortText;
    static constexpr int kAMF0 = 0;
    static constexpr int kAMF3 = 3;
    /// Default limit of a writer's output in bytes.
    static constexpr unsigned kDefaultOutputLimit = 64U << 20;

    /// A writer without a buffer.
    SRDataParser() = default;
    /// A reader over a message's body, which it keeps alive. The first byte of the body is skipped in the
    /// AMF3 types 15, 16 and 17.
    SRDataParser(const krx::SingleMessagePtr& message, bool throwOnBad);
    /// A reader over the caller's bytes, which must outlive it. A negative length counts as 0.
    SRDataParser(const unsigned char* data, int length, bool throwOnBad);
    virtual ~SRDataParser() = default;
    SRDataParser(const SRDataParser&) = delete;
    SRDataParser& operator=(const SRDataParser&) = delete;

    unsigned char GetByte();
    unsigned short GetWord();
    unsigned GetDWord();
    long long GetINT64();
    double GetDouble();
    /// A text with its length in front, as a new array with a terminating zero; null when it is not there.
    /// Throws SROutOfMemory.
    char* GetString(int type);
    /// n raw bytes inside the reader's data; null when they are not there.
    const unsigned char* GetData(unsigned n);

    // Writing throws SROutOfMemory when the buffer cannot grow.
    void PutByte(unsigned char value) { putByte(value); }
    void PutWord(unsigned short value) { putU16(value); }
    void PutDWord(unsigned value) { putU32(value); }
    void PutINT64(long long value) { putU64(static_cast<unsigned long long>(value)); }
    void PutDouble(double value) { putDouble(value); }
    void PutString(const char* text, int type);
    void PutString(std::string_view text, int type);
    void PutData(const void* bytes, unsigned n) { putBytes(bytes, n); }
    /// Makes room for n more bytes: starts with 256 bytes, doubles up to 64 KiB, then adds 64 KiB.
    void CheckBufferSize(unsigned n);

    /// Begins a record with a header word of type * 64 + length; with isLong the length follows in 32 bits.
    /// One record at a time.
    void StartTag(int type, bool isLong);
    /// Fills the record's header in; a short record has at most 62 bytes.
    void FinishTag();

    bool isBad() const { return m_bad; }
    bool isWriter() const { return m_writing; }
    /// First byte: the reader's data, or what was written.
    const unsigned char* getBuffer() const { return m_buffer; }
    /// Index of the next byte; a writer's length.
    unsigned getPosition() const { return m_position; }
    /// A reader's end; a writer's capacity.
    unsigned getLimit() const { return m_limit; }
    unsigned getRemaining() const { return m_limit - m_position; }
    /// A reader has no more bytes.
    bool atEnd() const { return m_position >= m_limit; }

    /// kAMF0 or kAMF3, the encoding of written values.
    int getEncoding() const { return m_encoding; }
    void setEncoding(int encoding) { m_encoding = encoding; }
    /// Bytes beyond which a writer's growth fails like a lack of memory.
    void setOutputLimit(unsigned bytes) { m_outputLimit = bytes; }

    /// The error trace, from the innermost failure outwards.
    const std::vector<SRString>& getErrorTrace() const { return m_trace; }
    /// Appends the trace to the file cmdParsingLog.log in the directory "logs" under the current directory,
    /// when there is such a directory and traces are on. It is cut after traceLimit() bytes.
    void logErrorTrace() const;
    /// Turns the writing of traces on, for the whole process; it is off at first. To be called before there
    /// are threads.
    static void setErrorTrace(bool on);
    /// A reader's trace may have 4 KiB plus 32 bytes per byte of its input.
    std::size_t traceLimit() const { return 4096 + std::size_t{32} * m_limit; }

protected:
    /// See the class. position: where the bad data was met.
    void HandleBadData(unsigned position, const wchar_t* detail)
    {
        HandleBadData(position, SRString(detail));
    }
    void HandleBadData(unsigned position, const SRString& detail);

    /// The bytes of a text with its length in front, where they lie; false when they are not there.
    bool readText(int type, std::string_view& text);
    void addTrace(const SRString& line) { m_trace.push_back(line); }
    void clearTrace() { m_trace.clear(); }
    /// Whether traces are on and logErrorTrace() would find its directory.
    static bool hasTraceDirectory();

    /// Something being read: while it lives, failures inside it add its line to the trace.
    class TraceScope
    {
    public:
        /// line: a constant; null for none.
        TraceScope(SRDataParser& parser, const wchar_t* line)
            : m_parser(parser), m_line(line), m_outer(parser.m_traceScope)
        {
            m_parser.m_traceScope = this;
        }
        ~TraceScope() { m_parser.m_traceScope = m_outer; }
        TraceScope(const TraceScope&) = delete;
        TraceScope& operator=(const TraceScope&) = delete;

    private:
        friend class SRDataParser;

        SRDataParser& m_parser;
        const wchar_t* const m_line;
        const TraceScope* const m_outer;
    };

    /// While one lives, bad data does not throw at once: the reader turns bad and jumps to its end, and every
    /// level returns. The outermost one throws in finish(). Unwinding hundreds of levels would cost a
    /// millisecond.
    class DeferredThrow
    {
    public:
        explicit DeferredThrow(SRDataParser& parser)
            : m_parser(parser), m_isOutermost(!std::exchange(parser.m_deferring, true))
        {
        }
        ~DeferredThrow()
        {
            if (m_isOutermost)
                m_parser.m_deferring = false;
        }
        DeferredThrow(const DeferredThrow&) = delete;
        DeferredThrow& operator=(const DeferredThrow&) = delete;

        /// After bad data, moves the reader back to it, no longer bad, and throws SRBreakConnection 1029.
        void finish()
        {
            if (m_isOutermost && m_parser.m_throwPending)
                m_parser.throwPending();
        }

    private:
        SRDataParser& m_parser;
        const bool m_isOutermost;
    };

    /// Adds the lines of all scopes to the trace, innermost first, and throws SRBreakConnection 1029 or
    /// defers it.
    void raiseBadData();

    /// A writer would pass its output limit.
    class OutputLimitReached : public SROutOfMemory
    {
    };

    /// A writer goes back to an earlier position.
    void rewindTo(unsigned position) { m_position = position; }

private:
    [[noreturn]] void throwPending();

    struct FreeBuffer
    {
        void operator()(unsigned char* buffer) const;
    };

    // n more bytes to read, or null after reporting bad data.
    const unsigned char* take(unsigned n);
    // Room for n more bytes to write, else null after the report.
    unsigned char* make(unsigned n) override;

    bool m_bad = false;
    const bool m_writing = true;
    const bool m_throwOnBad = false;
    const unsigned char* m_buffer = nullptr;
    unsigned m_position = 0;
    unsigned m_limit = 0;
    int m_tagType = -1;
    unsigned m_tagStart = 0;
    bool m_tagLong = false;
    int m_encoding = kAMF0;
    std::vector<SRString> m_trace;
    const TraceScope* m_traceScope = nullptr;  ///< the innermost
    bool m_deferring = false;
    bool m_throwPending = false;
    unsigned m_raisedAt = 0;  ///< the position to go back to before the pending exception is thrown
    unsigned m_outputLimit = kDefaultOutputLimit;
    std::unique_ptr<unsigned char, FreeBuffer> m_ownBuffer;
    krx::SingleMessagePtr m_message;
};
