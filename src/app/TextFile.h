#pragma once
// Reading small text files whole, and the key=value form of the version
// override file.
#include <cstdint>

#include "core/NoCaseMap.h"
#include "core/string/corestring.h"

// Reads the whole file. UTF-16 little endian is recognised by its mark, or
// by a zero second byte; anything else is multi-byte text in codePage, which
// sets wasMultiByte. With rawBytes set the bytes are handed over as binary
// content, undecoded. An empty file is an empty text; false when the file
// can't be opened, sized or read.
bool ReadTextFile(const wchar_t* path, std::uint32_t codePage, bool& wasMultiByte, bool rawBytes,
                  CORE::corestring& text);

// Lines at lineSeparator (empty ones dropped), then name and value at
// nameSeparator. A line of one piece, or of more than two, is a key with an
// empty value. Keys are kept as they stand; a repeated key takes the later
// value.
NoCaseMap ParseKeyValueText(const CORE::corestring& text, wchar_t lineSeparator, wchar_t nameSeparator);
