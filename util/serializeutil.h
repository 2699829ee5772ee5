// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

namespace krx::util {

/// A sink of bytes with big-endian integers on top. The sink reports what it cannot write.
class ISerialize
{
public:
    virtual ~ISerialize() = default;
    virtual void write(const void* bytes, unsigned n) = 0;

    /// The low width bytes of value, most significant first, in one write; width is at most 8.
    void writeInt(unsigned width, unsigned long long value);
    void writeU8(unsigned char value) { writeInt(1, value); }
    void writeU16(unsigned short value) { writeInt(2, value); }
    void writeU32(unsigned value) { writeInt(4, value); }
    void writeI32(int value) { writeInt(4, static_cast<unsigned>(value)); }
    void writeU64(unsigned long long value) { writeInt(8, value); }
    void writeI64(long long value) { writeInt(8, static_cast<unsigned long long>(value)); }

protected:
    ISerialize() = default;
    ISerialize(const ISerialize&) = default;
    ISerialize& operator=(const ISerialize&) = default;
};

/// A source of bytes with big-endian integers on top. read gives all n bytes or throws.
class IDeserialize
{
public:
    virtual ~IDeserialize() = default;
    virtual void read(void* bytes, unsigned n) = 0;

    /// width bytes, most significant first, in one read; width is at most 8.
    unsigned long long readInt(unsigned width);
    unsigned char readU8() { return static_cast<unsigned char>(readInt(1)); }
    unsigned short readU16() { return static_cast<unsigned short>(readInt(2)); }
    unsigned readU32() { return static_cast<unsigned>(readInt(4)); }
    int readI32() { return static_cast<int>(readInt(4)); }
    unsigned long long readU64() { return readInt(8); }
    long long readI64() { return static_cast<long long>(readInt(8)); }

protected:
    IDeserialize() = default;
    IDeserialize(const IDeserialize&) = default;
    IDeserialize& operator=(const IDeserialize&) = default;
};

}  // namespace krx::util
