#include "WriteBehind.h"

namespace mirel {

WriteBehind::WriteBehind(PayloadFiles& files, Sha256& hash, std::function<void(std::uint64_t)> afterWrite)
    : m_files(files), m_hash(hash), m_afterWrite(std::move(afterWrite)), m_storage(kBuffers)
{
    for (std::vector<std::uint8_t>& buffer : m_storage) {
        buffer.resize(kBufferBytes);
        m_free.push_back(buffer.data());
    }
    m_thread = std::thread(&WriteBehind::work, this);
}

WriteBehind::~WriteBehind()
{
    std::string ignored;
    finish(ignored);
}

std::uint8_t* WriteBehind::take()
{
    std::unique_lock<std::mutex> lock(m_lock);
    m_changed.wait(lock, [this] { return m_failed || !m_free.empty(); });
    if (m_failed)
        return nullptr;
    m_current = m_free.front();
    m_free.pop_front();
    return m_current;
}

void WriteBehind::give(std::size_t used)
{
    std::lock_guard<std::mutex> lock(m_lock);
    if (!m_current)
        return;
    if (used == 0)
        m_free.push_back(m_current);
    else
        m_queue.emplace_back(m_current, used);
    m_current = nullptr;
    m_changed.notify_all();
}

bool WriteBehind::finish(std::string& why)
{
    {
        std::lock_guard<std::mutex> lock(m_lock);
        m_stopping = true;
        m_changed.notify_all();
    }
    if (m_thread.joinable())
        m_thread.join();
    if (m_failed)
        why = m_why;
    return !m_failed;
}

void WriteBehind::work()
{
    for (;;) {
        std::pair<std::uint8_t*, std::size_t> item;
        {
            std::unique_lock<std::mutex> lock(m_lock);
            m_changed.wait(lock, [this] { return m_stopping || !m_queue.empty(); });
            if (m_queue.empty())
                return;
            item = m_queue.front();
            m_queue.pop_front();
        }
        std::string why;
        bool written = !m_failed && m_files.write(item.first, static_cast<std::uint32_t>(item.second), why);
        if (written)
            m_hash.update(item.first, item.second);
        {
            std::lock_guard<std::mutex> lock(m_lock);
            if (!written && !m_failed) {
                m_failed = true;
                m_why = why;
            }
            m_free.push_back(item.first);
            m_changed.notify_all();
        }
        if (written && m_afterWrite)
            m_afterWrite(m_files.written());
    }
}

}  // namespace mirel
