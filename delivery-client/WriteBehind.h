#pragma once
// Writes the body to the partial file and hashes it on a thread of its own
// while the next bytes arrive: under Wine, CNG's SHA-256 costs about as much
// as the TLS receive, and the two then overlap instead of adding up.
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Digest.h"
#include "PayloadFiles.h"

namespace mirel {

class WriteBehind {
public:
    static constexpr std::size_t kBufferBytes = 1024 * 1024;
    static constexpr std::size_t kBuffers = 3;

    // `afterWrite` runs on the writer's thread after each buffer is written,
    // with the partial file's size.
    WriteBehind(PayloadFiles& files, Sha256& hash, std::function<void(std::uint64_t)> afterWrite);
    ~WriteBehind();
    WriteBehind(const WriteBehind&) = delete;
    WriteBehind& operator=(const WriteBehind&) = delete;

    // A buffer to fill (kBufferBytes long); null once writing has failed.
    std::uint8_t* take();
    // Queues the buffer last taken with its first `used` bytes.
    void give(std::size_t used);
    // Writes what is queued and stops the thread. False with `why` when a
    // write failed; the partial file then holds what was written before.
    bool finish(std::string& why);

private:
    void work();

    PayloadFiles& m_files;
    Sha256& m_hash;
    std::function<void(std::uint64_t)> m_afterWrite;
    std::vector<std::vector<std::uint8_t>> m_storage;
    std::deque<std::uint8_t*> m_free;
    std::deque<std::pair<std::uint8_t*, std::size_t>> m_queue;
    std::uint8_t* m_current = nullptr;
    std::mutex m_lock;
    std::condition_variable m_changed;
    bool m_stopping = false;
    bool m_failed = false;
    std::string m_why;
    std::thread m_thread;
};

}  // namespace mirel
