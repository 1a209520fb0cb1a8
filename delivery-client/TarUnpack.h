#pragma once
// Unpacking a tar payload into the workspace.
//
// The archive is read twice through one handle that keeps writers out: the
// first pass checks every entry and the destination, the second writes. So
// an archive that is refused, or that can't be unpacked for a reason visible
// beforehand, writes nothing at all.
//
// Unpacked: regular files (an existing file of the same name is replaced)
// and folders, with the folders above them made as needed. Names are taken
// as UTF-8 (pax records and plain headers alike) and become wide names on
// disk. Reading needs plain tar (ustar, pax, GNU long names and sparse
// files); a compressed archive is Unreadable.
//
// Refused (UnsafeEntry), whatever else the archive holds:
// - absolute names: a leading '/' or '\', a drive ("C:"), a UNC name ("\\");
// - a ".." anywhere in the name, even one that would stay inside;
// - a backslash anywhere (tar's separator is '/', Windows would read it as
//   another), characters Windows refuses (< > : " | ? * and controls), a
//   name part ending in a dot or a space (Windows drops them), device names
//   (CON, NUL, COM1, LPT1, ... with or without an extension), name parts
//   longer than 255 characters, names that aren't valid UTF-8;
// - every link, hard or symbolic, wherever it points: none is unpacked,
//   which is simpler and safer than judging where each one leads;
// - devices, FIFOs, sockets;
// - a name the archive uses both as a file and as a folder.
// Unreadable: the archive can't be opened, isn't a tar archive, or is
// truncated or damaged. WriteFailed: the destination isn't an existing
// folder, holds a folder where a file goes, a file where a folder goes, or
// a link on disk on the way, a file would replace the archive itself, or a
// write fails (found while writing, this leaves what was written so far,
// but never a partly written file).
//
// Nothing is written outside `destination`. `why` is one UTF-8 sentence for
// the log naming the entry (or the archive) and the reason; nothing is
// logged here.
#include <string>
namespace mirel {
enum class TarResult { Ok, Unreadable, UnsafeEntry, WriteFailed };
// Unpacks the tar archive `archive` into the existing folder `destination`.
TarResult unpackTar(const std::wstring& archive, const std::wstring& destination, std::string& why);
}
