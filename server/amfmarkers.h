// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

/// The byte in front of an AMF0 value.
enum AMF0Marker : unsigned char
{
    kAMF0Number = 0,
    kAMF0Boolean = 1,
    kAMF0String = 2,
    kAMF0Object = 3,
    kAMF0MovieClip = 4,
    kAMF0Null = 5,
    kAMF0Undefined = 6,
    kAMF0Reference = 7,
    kAMF0ECMAArray = 8,
    kAMF0ObjectEnd = 9,
    kAMF0StrictArray = 10,
    kAMF0Date = 11,
    kAMF0LongString = 12,
    kAMF0Unsupported = 13,
    kAMF0XMLDocument = 15,
    kAMF0TypedObject = 16,
    kAMF0SwitchToAMF3 = 17,  ///< one AMF3 value follows
};

/// The byte in front of an AMF3 value.
enum AMF3Marker : unsigned char
{
    kAMF3Undefined = 0,
    kAMF3Null = 1,
    kAMF3False = 2,
    kAMF3True = 3,
    kAMF3Integer = 4,
    kAMF3Double = 5,
    kAMF3String = 6,
    kAMF3XMLDocument = 7,
    kAMF3Date = 8,
    kAMF3Array = 9,
    kAMF3Object = 10,
    kAMF3XML = 11,
    kAMF3ByteArray = 12,
    kAMF3IntVector = 13,
    kAMF3UintVector = 14,
    kAMF3DoubleVector = 15,
    kAMF3ObjectVector = 16,
    kAMF3Dictionary = 17,
};

/// An AMF3 header with this bit has its content after it; without it, it is a reference.
constexpr unsigned kAMF3Inline = 1;

/// Longest AMF0 text that has a length of two bytes.
constexpr unsigned kAMF0MaxShortText = 65535;
