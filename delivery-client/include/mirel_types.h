#pragma once
// Types at the boundary of mirelclient.dll. They are a wire format: the
// vendor's library passes texts in the layout of its C++ runtime's narrow
// string, and lists as three pointers, so ours does the same.
#include <cstdarg>
#include <cstddef>
#include <cstdint>

// 32 bytes: the text itself when it has at most 15 bytes, otherwise a pointer
// to it in the first 8 bytes; then length and capacity. UTF-8, terminated.
struct NarrowText {
    union {
        char inlineText[16];
        char* heapText;
    } data;
    std::uint64_t length;
    std::uint64_t capacity;  // at least 15; above 15 when the text is on the heap
};
static_assert(sizeof(NarrowText) == 32, "NarrowText is a 32-byte wire layout");
static_assert(offsetof(NarrowText, length) == 16 && offsetof(NarrowText, capacity) == 24,
              "NarrowText field offsets are fixed");

// Three pointers: first element, one behind the last, one behind the storage.
//
// Who owns a list. MirelCreateDownload takes its three lists by value: the
// callee receives copies and owns them, and neither side's C++ runtime can
// free the other's memory. So both sides use the process heap:
// - the caller allocates each list's array, and the text of every item whose
//   capacity is above 15, with HeapAlloc(GetProcessHeap(), 0, n) (a text
//   block holds at least length + 1 bytes, terminated); an empty list is
//   three null pointers;
// - from the call on, all of it belongs to the library, which reads what it
//   needs and gives every such block back with HeapFree(GetProcessHeap(), 0,
//   block) once done with it, at MirelDestroyDownload at the latest; ours
//   does so before MirelCreateDownload returns, whatever the outcome;
// - the caller never touches a list again once it has passed it.
// Our library checks each block with HeapValidate before freeing it and
// leaves alone (and logs) what isn't the process heap's, rather than
// corrupt the heap. Texts passed by reference (NarrowText&) are lent for
// the call only and stay the caller's.
struct NarrowTextList {
    NarrowText* first;
    NarrowText* last;
    NarrowText* end;
};
static_assert(sizeof(NarrowTextList) == 24, "NarrowTextList is three pointers");

struct DownloadHandleList {
    void** first;
    void** last;
    void** end;
};
static_assert(sizeof(DownloadHandleList) == 24, "DownloadHandleList is three pointers");

// Levels: 0 debug, 1 info, 2 warning, 3 error.
typedef void (*MirelLogCallback)(int level, const char* format, va_list arguments);

// Result codes of MirelRunDownloads (delivery-client/README.md says when
// each comes).
enum MirelClientResult : std::int32_t {
    MIRELCLIENT_SUCCESS = 0,
    MIRELCLIENT_PEM_FILE_FAILED = 1,
    MIRELCLIENT_CREATE_CLIENT_FAILED = 2,
    MIRELCLIENT_INIT_FAILED = 3,
    MIRELCLIENT_DOWNLOAD_PENDING = 4,
    MIRELCLIENT_INVALID_THUMBPRINT = 5,
    MIRELCLIENT_QUEUE_DOWNLOAD_FAILED = 6,
    MIRELCLIENT_DOWNLOAD_FAILED = 7,
    MIRELCLIENT_VERIFY_FAILED = 8,
    MIRELCLIENT_HTTP_CERTIFICATE_ERROR = 9,
    MIRELCLIENT_WRONG_SIZE_ERROR = 10,
    MIRELCLIENT_WRONG_CHECKSUM_ERROR = 11,
    MIRELCLIENT_INVALID_URI_ERROR = 12,
};

#ifdef MIRELCLIENT_BUILD
#define MIRELCLIENT_API extern "C" __declspec(dllexport)
#else
#define MIRELCLIENT_API extern "C" __declspec(dllimport)
#endif

// The six operations, exported at ordinals 1, 2, 3, 4, 5 and 8.
MIRELCLIENT_API std::int32_t MirelRunDownloads(const NarrowText& workspace, const DownloadHandleList& downloads);
MIRELCLIENT_API void* MirelCreateDownload(const NarrowText& identity, std::int32_t expectedSize, bool flag,
                                          NarrowTextList urls, NarrowTextList thumbprints, NarrowTextList proxies,
                                          const NarrowText& pacUrl, const NarrowText& workspace,
                                          const NarrowText& checksum, std::int32_t reserved, std::int32_t payloadType);
MIRELCLIENT_API void MirelDestroyDownload(void* download);
MIRELCLIENT_API void MirelSetLogCallback(MirelLogCallback callback);
MIRELCLIENT_API void MirelSetPemFile(const NarrowText& pemFile);
MIRELCLIENT_API void MirelUseSystemCA(const bool* useSystemCA);
