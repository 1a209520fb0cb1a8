#include "TrustChoice.h"

#include <mutex>

namespace mirel {

namespace {

std::mutex g_lock;
TrustChoice g_choice;

}  // namespace

void choosePemFile(const std::string& path, bool valid, const std::string& why)
{
    std::lock_guard<std::mutex> guard(g_lock);
    g_choice = TrustChoice{};
    g_choice.kind = TrustChoice::PemFile;
    g_choice.pemPath = path;
    g_choice.pemPathValid = valid;
    g_choice.pemPathWhy = why;
}

void chooseSystemCa(bool yes)
{
    std::lock_guard<std::mutex> guard(g_lock);
    g_choice = TrustChoice{};
    g_choice.kind = yes ? TrustChoice::SystemCa : TrustChoice::NotChosen;
}

TrustChoice currentTrustChoice()
{
    std::lock_guard<std::mutex> guard(g_lock);
    return g_choice;
}

}  // namespace mirel
