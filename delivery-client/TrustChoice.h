#pragma once
// The process-wide choice of how servers are trusted, made by
// MirelSetPemFile or MirelUseSystemCA before downloads are created.
#include <string>

namespace mirel {

struct TrustChoice {
    enum Kind { NotChosen, SystemCa, PemFile } kind = NotChosen;
    std::string pemPath;  // PemFile: the CA file, UTF-8
    bool pemPathValid = true;
    std::string pemPathWhy;  // why the path's text was refused
};

void choosePemFile(const std::string& path, bool valid, const std::string& why);
void chooseSystemCa(bool yes);
TrustChoice currentTrustChoice();

}  // namespace mirel
