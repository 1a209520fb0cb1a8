#pragma once
// The two checks of a payload copied from a share: its size against
// "FILESIZE" and its SHA-256 against "CHECKSUM". Failures are logged and
// named in the record's sErrorCode and sErrorDesc.
#include <vector>

// The file's size, as "%lu" text, against sFileSize compared as text.
bool Util_CompareFileSize(const wchar_t* filename);
// SHA-256 of the file through the platform's hash service, streamed in
// pieces of 4096 bytes; `digest` is sized by the provider.
bool Util_ComputeCheckSum(const wchar_t* filename, std::vector<unsigned char>& digest);
// The digest as lower-case hex against sCheckSum, ignoring case. A mismatch
// sets sResult to "FAILURE"; a match leaves it as it is.
bool Util_CompareCheckSum(const std::vector<unsigned char>& digest);
