// Windows build: the media graph interfaces, their result codes and events
// come from the platform.
#pragma once

#include <windows.h>
#include <strmif.h>
#include <uuids.h>
#include <control.h>
#include <evcode.h>
#include <vfwmsgs.h>

#include "platform/com/com_ptr.h"

// Subtypes that sit in codec headers of the SDK (or in none of mingw-w64's):
// declared here so that the system needs no codec header.
inline constexpr GUID MEDIASUBTYPE_AVC1 = {0x31435641, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};
inline constexpr GUID MEDIASUBTYPE_AAC_AUDIO = {0xAACE71A1, 0x8259, 0x4250, {0x85, 0x83, 0x49, 0x61, 0x3A, 0xF3, 0x1C, 0x93}};

// Declared by the SDK's network show header, which mingw-w64 does not carry;
// the filter only answers to the IID.
inline constexpr IID IID_IAMExtendedSeeking = {0xFA2AA8F9, 0x8B62, 0x11D0, {0xA5, 0x20, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00}};
